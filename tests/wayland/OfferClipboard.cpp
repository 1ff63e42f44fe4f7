// zettly_test_offer [--primary] TYPE=VALUE...
//
// Owns the clipboard (or the primary selection) with several formats at
// once, which wl-copy cannot: a password manager's copy is its text plus a
// marker format. Answers every request until another owner replaces it,
// then exits 0. Prints "ready" once the compositor has taken the offer.
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include <unistd.h>
#include <wayland-client.h>

#include "wayland/wlr-data-control-unstable-v1-client-protocol.h"

namespace {

std::map<std::string, std::string> offered;
bool cancelled = false;
wl_seat* seat = nullptr;
zwlr_data_control_manager_v1* manager = nullptr;

void onGlobal(void*, wl_registry* registry, uint32_t name, const char* interface, uint32_t) {
    if (std::strcmp(interface, wl_seat_interface.name) == 0 && !seat)
        seat = static_cast<wl_seat*>(wl_registry_bind(registry, name, &wl_seat_interface, 1));
    else if (std::strcmp(interface, zwlr_data_control_manager_v1_interface.name) == 0)
        manager = static_cast<zwlr_data_control_manager_v1*>(
            wl_registry_bind(registry, name, &zwlr_data_control_manager_v1_interface, 2));
}

void onGlobalRemove(void*, wl_registry*, uint32_t) {}

void onSend(void*, zwlr_data_control_source_v1*, const char* type, int32_t fd) {
    auto it = offered.find(type);
    if (it != offered.end()) {
        const std::string& value = it->second;
        for (std::size_t done = 0; done < value.size();) {
            ssize_t n = ::write(fd, value.data() + done, value.size() - done);
            if (n <= 0)
                break;
            done += static_cast<std::size_t>(n);
        }
    }
    ::close(fd);
}

void onCancelled(void*, zwlr_data_control_source_v1*) {
    cancelled = true;
}

// The device's events are not needed, but a device without listeners would
// make libwayland abort on the first one.
void onDataOffer(void*, zwlr_data_control_device_v1*, zwlr_data_control_offer_v1* offer) {
    zwlr_data_control_offer_v1_destroy(offer);
}
void onSelection(void*, zwlr_data_control_device_v1*, zwlr_data_control_offer_v1*) {}
void onFinished(void*, zwlr_data_control_device_v1*) {}

}  // namespace

int main(int argc, char** argv) {
    bool primary = false;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--primary") {
            primary = true;
            continue;
        }
        auto eq = arg.find('=');
        if (eq == std::string::npos) {
            std::fprintf(stderr, "usage: zettly_test_offer [--primary] TYPE=VALUE...\n");
            return 2;
        }
        offered[arg.substr(0, eq)] = arg.substr(eq + 1);
    }
    wl_display* display = wl_display_connect(nullptr);
    if (!display) {
        std::fprintf(stderr, "zettly_test_offer: no Wayland compositor\n");
        return 1;
    }
    static const wl_registry_listener registryListener = {onGlobal, onGlobalRemove};
    wl_registry_add_listener(wl_display_get_registry(display), &registryListener, nullptr);
    wl_display_roundtrip(display);
    if (!seat || !manager) {
        std::fprintf(stderr, "zettly_test_offer: the compositor offers no data control\n");
        return 1;
    }
    auto* device = zwlr_data_control_manager_v1_get_data_device(manager, seat);
    static const zwlr_data_control_device_v1_listener deviceListener = {onDataOffer, onSelection,
                                                                        onFinished, onSelection};
    zwlr_data_control_device_v1_add_listener(device, &deviceListener, nullptr);
    auto* source = zwlr_data_control_manager_v1_create_data_source(manager);
    static const zwlr_data_control_source_v1_listener sourceListener = {onSend, onCancelled};
    zwlr_data_control_source_v1_add_listener(source, &sourceListener, nullptr);
    for (const auto& [type, value] : offered)
        zwlr_data_control_source_v1_offer(source, type.c_str());
    if (primary)
        zwlr_data_control_device_v1_set_primary_selection(device, source);
    else
        zwlr_data_control_device_v1_set_selection(device, source);
    wl_display_roundtrip(display);
    std::printf("ready\n");
    std::fflush(stdout);
    while (!cancelled && wl_display_dispatch(display) >= 0) {
    }
    return 0;
}
