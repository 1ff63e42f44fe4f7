#include <cstdio>
#include <mutex>
#include <string>

#include "platform/Log.h"

namespace zettly {

void StderrLog::line(std::string_view text) {
    // One write per line so that lines from different threads never interleave.
    std::string out(text);
    out.push_back('\n');
    static std::mutex mutex;
    std::lock_guard lock(mutex);
    std::fwrite(out.data(), 1, out.size(), stderr);
    std::fflush(stderr);
}

StderrLog& StderrLog::instance() {
    static StderrLog log;
    return log;
}

}  // namespace zettly
