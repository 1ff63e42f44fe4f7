#pragma once

#include <cstdint>

#include <wayland-client.h>

#include "wayland/ext-data-control-v1-client-protocol.h"
#include "wayland/wlr-data-control-unstable-v1-client-protocol.h"

// ext-data-control-v1 is wlr-data-control-unstable-v1 taken into the
// Wayland protocols under a new name: the same objects, requests and events
// in the same order. One set of names for either, generated from the
// prefix, lets one implementation serve both.
#define ZETTLY_DATA_CONTROL_PROTOCOL(Name, prefix, highestVersion)                                 \
    struct Name {                                                                                  \
        using Manager = prefix##_manager_v1;                                                       \
        using Device = prefix##_device_v1;                                                         \
        using Source = prefix##_source_v1;                                                         \
        using Offer = prefix##_offer_v1;                                                           \
        using DeviceListener = prefix##_device_v1_listener;                                        \
        using SourceListener = prefix##_source_v1_listener;                                        \
        using OfferListener = prefix##_offer_v1_listener;                                          \
        static constexpr std::uint32_t maxVersion = highestVersion;                                \
        static const wl_interface& managerInterface() { return prefix##_manager_v1_interface; }    \
        static Device* getDevice(Manager* m, wl_seat* seat) {                                      \
            return prefix##_manager_v1_get_data_device(m, seat);                                   \
        }                                                                                          \
        static Source* createSource(Manager* m) {                                                  \
            return prefix##_manager_v1_create_data_source(m);                                      \
        }                                                                                          \
        static void setSelection(Device* d, Source* s) { prefix##_device_v1_set_selection(d, s); } \
        static void offer(Source* s, const char* type) { prefix##_source_v1_offer(s, type); }      \
        static void receive(Offer* o, const char* type, int fd) {                                  \
            prefix##_offer_v1_receive(o, type, fd);                                                \
        }                                                                                          \
        static void listen(Device* d, const DeviceListener* l, void* data) {                       \
            prefix##_device_v1_add_listener(d, l, data);                                           \
        }                                                                                          \
        static void listen(Source* s, const SourceListener* l, void* data) {                       \
            prefix##_source_v1_add_listener(s, l, data);                                           \
        }                                                                                          \
        static void listen(Offer* o, const OfferListener* l, void* data) {                         \
            prefix##_offer_v1_add_listener(o, l, data);                                            \
        }                                                                                          \
        static void destroy(Manager* m) { prefix##_manager_v1_destroy(m); }                        \
        static void destroy(Device* d) { prefix##_device_v1_destroy(d); }                          \
        static void destroy(Source* s) { prefix##_source_v1_destroy(s); }                          \
        static void destroy(Offer* o) { prefix##_offer_v1_destroy(o); }                            \
    };

namespace zettly {

ZETTLY_DATA_CONTROL_PROTOCOL(ExtDataControl, ext_data_control, 1)
// Version 2 adds the primary selection, which is only ever let go.
ZETTLY_DATA_CONTROL_PROTOCOL(WlrDataControl, zwlr_data_control, 2)

}  // namespace zettly

#undef ZETTLY_DATA_CONTROL_PROTOCOL
