#include "platform/wayland/DataControlDevice.h"

#include <algorithm>
#include <map>

#include "platform/wayland/ClipPayload.h"
#include "platform/wayland/DataControlProtocols.h"
#include "platform/wayland/PipeTransfer.h"
#include "platform/wayland/WaylandConnection.h"

namespace zettly {

namespace {

template <typename P>
class DataControlDeviceOf final : public DataControlDevice {
public:
    DataControlDeviceOf(std::string_view protocol, typename P::Manager* manager, wl_seat* seat,
                        Events& events, PipeWriter& writer)
        : protocol_(protocol),
          events_(events),
          writer_(writer),
          manager_(manager),
          device_(P::getDevice(manager, seat)) {
        P::listen(device_, &deviceListener, this);
    }

    ~DataControlDeviceOf() override { release(); }

    std::string_view protocol() const override { return protocol_; }

    void setSelection(std::int64_t change, std::shared_ptr<ClipPayload> payload) override {
        if (!device_)
            return;
        if (!payload) {
            // An empty clipboard is announced as a change only when it was
            // not empty before.
            if (selectionPresent_ || !own_.empty())
                clearEchoExpected_ = true;
            P::setSelection(device_, nullptr);
            return;
        }
        auto own = std::make_unique<OwnSource>();
        own->device = this;
        own->change = change;
        own->payload = std::move(payload);
        own->source = P::createSource(manager_);
        P::listen(own->source, &sourceListener, own.get());
        for (const std::string& type : own->payload->types())
            P::offer(own->source, type.c_str());
        P::setSelection(device_, own->source);
        own_.push_back(std::move(own));
    }

    void receive(Receive request) override {
        if (!device_)
            return;
        if (offer_ && offerChange_ == request.change) {
            P::receive(offer_, request.type.c_str(), request.fd.get());
            *request.sent = true;
            return;
        }
        if (ownsChange(request.change))
            waiting_.push_back(std::move(request));
        // Otherwise the change is gone; the reader sees its pipe close.
    }

private:
    struct OwnSource {
        DataControlDeviceOf* device = nullptr;
        typename P::Source* source = nullptr;
        std::int64_t change = 0;
        std::shared_ptr<ClipPayload> payload;
    };

    bool ownsChange(std::int64_t change) const {
        return std::any_of(own_.begin(), own_.end(),
                           [change](const auto& own) { return own->change == change; });
    }

    // The offer the clipboard's reads go to from now on.
    void replaceOffer(typename P::Offer* offer, std::int64_t change) {
        if (offer_)
            P::destroy(offer_);
        offer_ = offer;
        offerChange_ = change;
    }

    // Reads of a write of ours that waited for its offer.
    void serveWaiting() {
        std::vector<Receive> waiting;
        waiting.swap(waiting_);
        for (Receive& request : waiting) {
            if (request.change == offerChange_ || ownsChange(request.change))
                receive(std::move(request));
        }
    }

    void release() {
        for (auto& [offer, types] : introduced_)
            P::destroy(offer);
        introduced_.clear();
        replaceOffer(nullptr, -1);
        for (auto& own : own_)
            P::destroy(own->source);
        own_.clear();
        waiting_.clear();
        if (device_)
            P::destroy(device_);
        device_ = nullptr;
        if (manager_)
            P::destroy(manager_);
        manager_ = nullptr;
    }

    static void onDataOffer(void* data, typename P::Device*, typename P::Offer* offer) {
        auto* self = static_cast<DataControlDeviceOf*>(data);
        self->introduced_[offer];
        P::listen(offer, &offerListener, self);
    }

    static void onOfferType(void* data, typename P::Offer* offer, const char* type) {
        auto* self = static_cast<DataControlDeviceOf*>(data);
        if (auto introduced = self->introduced_.find(offer); introduced != self->introduced_.end())
            introduced->second.emplace_back(type);
    }

    static void onSelection(void* data, typename P::Device*, typename P::Offer* offer) {
        static_cast<DataControlDeviceOf*>(data)->selected(offer);
    }

    void selected(typename P::Offer* offer) {
        if (!offer) {
            selectionPresent_ = false;
            if (clearEchoExpected_) {
                clearEchoExpected_ = false;  // our own clear() coming back
                replaceOffer(nullptr, -1);
                return;
            }
            replaceOffer(nullptr, events_.selectionChanged(std::nullopt));
            return;
        }
        std::vector<std::string> types;
        if (auto introduced = introduced_.find(offer); introduced != introduced_.end()) {
            types = std::move(introduced->second);
            introduced_.erase(introduced);
        }
        selectionPresent_ = true;
        clearEchoExpected_ = false;
        if (own_.size() == 1) {
            replaceOffer(offer, own_.front()->change);
            serveWaiting();
        } else if (!own_.empty()) {
            // The echo of a write of ours that a later one has replaced
            // already: the later one's follows once this one is cancelled.
            replaceOffer(nullptr, -1);
            P::destroy(offer);
        } else {
            replaceOffer(offer, events_.selectionChanged(std::move(types)));
        }
    }

    static void onPrimarySelection(void* data, typename P::Device*, typename P::Offer* offer) {
        // The primary selection (what is merely selected) is never history.
        if (!offer)
            return;
        static_cast<DataControlDeviceOf*>(data)->introduced_.erase(offer);
        P::destroy(offer);
    }

    static void onFinished(void* data, typename P::Device*) {
        auto* self = static_cast<DataControlDeviceOf*>(data);
        self->release();
        self->events_.deviceFinished();
    }

    static void onSend(void* data, typename P::Source*, const char* type, std::int32_t fd) {
        auto* own = static_cast<OwnSource*>(data);
        own->device->writer_.send(own->payload, type, UniqueFd(fd));
    }

    static void onCancelled(void* data, typename P::Source* source) {
        auto* own = static_cast<OwnSource*>(data);
        auto* self = own->device;
        std::int64_t change = own->change;
        P::destroy(source);
        std::erase_if(self->own_, [own](const auto& o) { return o.get() == own; });
        // Reads still waiting for this write's offer will not get one.
        std::erase_if(self->waiting_, [change](const Receive& r) { return r.change == change; });
    }

    static constexpr typename P::DeviceListener deviceListener = {
        .data_offer = &onDataOffer,
        .selection = &onSelection,
        .finished = &onFinished,
        .primary_selection = &onPrimarySelection,
    };
    static constexpr typename P::SourceListener sourceListener = {
        .send = &onSend,
        .cancelled = &onCancelled,
    };
    static constexpr typename P::OfferListener offerListener = {.offer = &onOfferType};

    std::string_view protocol_;
    Events& events_;
    PipeWriter& writer_;
    typename P::Manager* manager_;
    typename P::Device* device_;
    // Offers announced by data_offer whose selection event has not come.
    std::map<typename P::Offer*, std::vector<std::string>> introduced_;
    typename P::Offer* offer_ = nullptr;
    std::int64_t offerChange_ = -1;
    // Our sources not yet cancelled, oldest first.
    std::vector<std::unique_ptr<OwnSource>> own_;
    bool selectionPresent_ = false;
    bool clearEchoExpected_ = false;
    std::vector<Receive> waiting_;
};

template <typename P>
std::unique_ptr<DataControlDevice> bindDevice(std::string_view protocol,
                                              WaylandConnection& connection,
                                              DataControlDevice::Events& events,
                                              PipeWriter& writer) {
    auto* manager =
        static_cast<typename P::Manager*>(connection.bind(P::managerInterface(), P::maxVersion));
    if (!manager)
        return nullptr;
    return std::make_unique<DataControlDeviceOf<P>>(protocol, manager, connection.seat(), events,
                                                    writer);
}

}  // namespace

std::unique_ptr<DataControlDevice> DataControlDevice::create(WaylandConnection& connection,
                                                             Events& events, PipeWriter& writer) {
    if (!connection.seat())
        return nullptr;
    if (auto device = bindDevice<ExtDataControl>("ext-data-control-v1", connection, events, writer))
        return device;
    return bindDevice<WlrDataControl>("wlr-data-control-unstable-v1", connection, events, writer);
}

}  // namespace zettly
