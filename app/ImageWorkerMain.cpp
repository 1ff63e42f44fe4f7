// zettly-image-worker: decodes copied images for the tray app, in a process
// of its own (see ImageWorkerClient). It serves requests on its standard
// input and output and leaves after 30 seconds without one.
#include <malloc.h>
#include <sys/resource.h>

#include "store/ImageReducer.h"

int main() {
    // A picture that needs more than this to decode is refused, not allowed
    // to push the desktop into swap. Headers over 100 megapixels are refused
    // earlier; this catches what a header does not tell.
    rlimit memory{1ull << 30, 1ull << 30};
    setrlimit(RLIMIT_AS, &memory);
    mallopt(M_ARENA_MAX, 2);
    return zettly::runImageWorker(0, 30);
}
