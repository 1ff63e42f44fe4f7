#include "tests/wayland/TestCompositor.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <future>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <wayland-server.h>

#include "wayland/ext-data-control-v1-server-protocol.h"

namespace zettly::test {

namespace {

bool offers(const std::vector<std::string>& types, const std::string& type) {
    return std::find(types.begin(), types.end(), type) != types.end();
}

// Waits until `fd` is readable, at most `ms` (forever when negative).
bool readable(int fd, int ms) {
    pollfd p{fd, POLLIN, 0};
    return ::poll(&p, 1, ms) > 0;
}

}  // namespace

// Whoever owns a selection: a client's source, or an application the test
// plays.
struct TestCompositor::Owner {
    virtual ~Owner() = default;
    // Writes the contents as `type` into `fd`, in its own time.
    virtual void send(const std::string& type, UniqueFd fd) = 0;
    // Another owner took over.
    virtual void cancel() = 0;
    virtual bool isClient() const = 0;

    std::vector<std::string> types;
};

struct TestCompositor::Device {
    TestCompositor* compositor = nullptr;
    wl_resource* resource = nullptr;
};

namespace {

struct ClientOwner final : TestCompositor::Owner {
    void send(const std::string& type, UniqueFd fd) override {
        if (resource)
            ext_data_control_source_v1_send_send(resource, type.c_str(), fd.get());
    }
    void cancel() override {
        if (resource)
            ext_data_control_source_v1_send_cancelled(resource);
    }
    bool isClient() const override { return true; }

    wl_resource* resource = nullptr;
    bool used = false;
};

// An application of the test's: answers each request on a thread, as told.
struct AppOwner final : TestCompositor::Owner {
    AppOwner(TestCompositor::Contents contents, TestCompositor::Answer answer)
        : contents(std::move(contents)),
          answer(answer),
          stopFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        for (const auto& [type, bytes] : this->contents)
            types.push_back(type);
    }
    ~AppOwner() override {
        stop();
        for (auto& writer : writers)
            writer.join();
    }

    void send(const std::string& type, UniqueFd fd) override {
        auto found = std::find_if(contents.begin(), contents.end(),
                                  [&](const auto& entry) { return entry.first == type; });
        if (found == contents.end())
            return;  // closing the pipe at once is how a format is refused
        writers.emplace_back(
            [this, bytes = found->second, fd = std::move(fd)] { write(bytes, fd.get()); });
    }
    // Like a real application, it goes on with the answers under way.
    void cancel() override {}
    // Ends every answer under way: their pipes close.
    void stop() {
        std::uint64_t one = 1;
        [[maybe_unused]] auto n = ::write(stopFd.get(), &one, sizeof one);
    }
    bool isClient() const override { return false; }

    void write(const TestCompositor::Bytes& bytes, int fd) {
        // A reader that gives up early closes its end; that must not end
        // the test.
        sigset_t pipeSignal;
        sigemptyset(&pipeSignal);
        sigaddset(&pipeSignal, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
        if (answer.delay.count() > 0 && readable(stopFd.get(), int(answer.delay.count())))
            return;
        if (answer.never) {
            readable(stopFd.get(), -1);
            return;
        }
        std::size_t end = std::min(bytes.size(), answer.stallAfter.value_or(bytes.size()));
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
        std::size_t written = 0;
        while (written < end) {
            pollfd fds[2] = {{fd, POLLOUT, 0}, {stopFd.get(), POLLIN, 0}};
            ::poll(fds, 2, -1);
            if (fds[1].revents & POLLIN)
                return;
            ssize_t n = ::write(fd, bytes.data() + written, end - written);
            if (n < 0 && errno != EAGAIN && errno != EINTR)
                return;
            if (n > 0)
                written += static_cast<std::size_t>(n);
        }
        if (answer.stallAfter)
            readable(stopFd.get(), -1);
    }

    TestCompositor::Contents contents;
    TestCompositor::Answer answer;
    UniqueFd stopFd;
    std::vector<std::thread> writers;
};

struct OfferState {
    TestCompositor* compositor;
    std::weak_ptr<TestCompositor::Owner> owner;
    bool primary;
};

}  // namespace

// The protocol's request handlers, with access to the compositor's state.
struct Callbacks {
    static TestCompositor& of(wl_resource* resource) {
        return *static_cast<TestCompositor*>(wl_resource_get_user_data(resource));
    }
    static void destroy(wl_client*, wl_resource* resource) { wl_resource_destroy(resource); }

    static void noDevice(wl_client*, wl_resource* resource, std::uint32_t) {
        wl_resource_post_error(resource, 0, "the test seat has no input devices");
    }
    static constexpr struct wl_seat_interface seat = {
        .get_pointer = &noDevice,
        .get_keyboard = &noDevice,
        .get_touch = &noDevice,
        .release = &destroy,
    };

    struct SourceState {
        TestCompositor* compositor;
        std::shared_ptr<ClientOwner> owner;
    };
    static void createSource(wl_client* client, wl_resource* manager, std::uint32_t id) {
        wl_resource* resource = wl_resource_create(client, &ext_data_control_source_v1_interface,
                                                   wl_resource_get_version(manager), id);
        auto owner = std::make_shared<ClientOwner>();
        owner->resource = resource;
        wl_resource_set_implementation(resource, &source, new SourceState{&of(manager), owner},
                                       &sourceDestroyed);
    }
    static std::shared_ptr<ClientOwner>& ownerOf(wl_resource* source) {
        return static_cast<SourceState*>(wl_resource_get_user_data(source))->owner;
    }
    static void sourceDestroyed(wl_resource* resource) {
        auto* state = static_cast<SourceState*>(wl_resource_get_user_data(resource));
        TestCompositor& compositor = *state->compositor;
        std::shared_ptr<ClientOwner> owner = std::move(state->owner);
        owner->resource = nullptr;
        delete state;
        if (compositor.shuttingDown_)
            return;
        // A source destroyed while it is the selection empties it.
        if (compositor.selection_ == owner)
            compositor.setSelection(nullptr, false);
        if (compositor.primary_ == owner)
            compositor.setSelection(nullptr, true);
    }
    static void offer(wl_client*, wl_resource* source, const char* type) {
        ownerOf(source)->types.emplace_back(type);
    }
    static constexpr struct ext_data_control_source_v1_interface source = {
        .offer = &offer,
        .destroy = &destroy,
    };

    static void getDevice(wl_client* client, wl_resource* manager, std::uint32_t id, wl_resource*) {
        TestCompositor& compositor = of(manager);
        wl_resource* resource = wl_resource_create(client, &ext_data_control_device_v1_interface,
                                                   wl_resource_get_version(manager), id);
        auto* device = new TestCompositor::Device{&compositor, resource};
        wl_resource_set_implementation(resource, &deviceImplementation, device, &deviceDestroyed);
        compositor.devices_.push_back(device);
        compositor.announce(*device, false);
        if (compositor.primary_)
            compositor.announce(*device, true);
    }
    static void deviceDestroyed(wl_resource* resource) {
        auto* device = static_cast<TestCompositor::Device*>(wl_resource_get_user_data(resource));
        std::erase(device->compositor->devices_, device);
        delete device;
    }
    static void select(wl_resource* deviceResource, wl_resource* sourceResource, bool primary) {
        auto* device =
            static_cast<TestCompositor::Device*>(wl_resource_get_user_data(deviceResource));
        std::shared_ptr<ClientOwner> owner;
        if (sourceResource) {
            owner = ownerOf(sourceResource);
            if (owner->used) {
                wl_resource_post_error(deviceResource, EXT_DATA_CONTROL_DEVICE_V1_ERROR_USED_SOURCE,
                                       "source already used");
                return;
            }
            owner->used = true;
        }
        device->compositor->setSelection(owner, primary);
    }
    static void setSelection(wl_client*, wl_resource* device, wl_resource* source) {
        select(device, source, false);
    }
    static void setPrimarySelection(wl_client*, wl_resource* device, wl_resource* source) {
        select(device, source, true);
    }
    static constexpr struct ext_data_control_device_v1_interface deviceImplementation = {
        .set_selection = &setSelection,
        .destroy = &destroy,
        .set_primary_selection = &setPrimarySelection,
    };

    static constexpr struct ext_data_control_manager_v1_interface manager = {
        .create_data_source = &createSource,
        .get_data_device = &getDevice,
        .destroy = &destroy,
    };

    static void receive(wl_client*, wl_resource* offer, const char* type, std::int32_t fd) {
        UniqueFd pipe(fd);
        auto* state = static_cast<OfferState*>(wl_resource_get_user_data(offer));
        auto owner = state->owner.lock();
        TestCompositor& compositor = *state->compositor;
        {
            std::lock_guard lock(compositor.changesMutex_);
            ++compositor.requests_;
            compositor.changesChanged_.notify_all();
        }
        // An offer of a selection that has changed hands since is inert.
        if (!owner || owner != (state->primary ? compositor.primary_ : compositor.selection_) ||
            !offers(owner->types, type))
            return;
        owner->send(type, std::move(pipe));
    }
    static void offerDestroyed(wl_resource* resource) {
        delete static_cast<OfferState*>(wl_resource_get_user_data(resource));
    }
    static constexpr struct ext_data_control_offer_v1_interface offerImplementation = {
        .receive = &receive,
        .destroy = &destroy,
    };
};

TestCompositor::TestCompositor(Options options)
    : display_(wl_display_create()), wakeFd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    loop_ = wl_display_get_event_loop(display_);
    const char* name = wl_display_add_socket_auto(display_);
    if (!name)
        throw std::runtime_error("the test compositor has no socket (is XDG_RUNTIME_DIR set?)");
    socket_ = name;
    wl_global_create(display_, &wl_seat_interface, 1, this, &TestCompositor::bindSeat);
    if (options.dataControl)
        wl_global_create(display_, &ext_data_control_manager_v1_interface, 1, this,
                         &TestCompositor::bindManager);
    wakeSource_ = wl_event_loop_add_fd(
        loop_, wakeFd_.get(), WL_EVENT_READABLE,
        [](int fd, std::uint32_t, void* data) {
            std::uint64_t count;
            [[maybe_unused]] auto n = ::read(fd, &count, sizeof count);
            static_cast<TestCompositor*>(data)->runCalls();
            return 0;
        },
        this);
    thread_ = std::thread([this] {
        while (running_) {
            wl_display_flush_clients(display_);
            wl_event_loop_dispatch(loop_, -1);
        }
    });
}

TestCompositor::~TestCompositor() {
    call([this] { running_ = false; });
    thread_.join();
    shuttingDown_ = true;
    for (auto& owner : appOwners_)
        static_cast<AppOwner&>(*owner).stop();
    wl_display_destroy_clients(display_);
    wl_event_source_remove(wakeSource_);
    wl_display_destroy(display_);
    selection_.reset();
    primary_.reset();
    appOwners_.clear();
}

void TestCompositor::bindSeat(wl_client* client, void*, std::uint32_t version, std::uint32_t id) {
    wl_resource* resource =
        wl_resource_create(client, &wl_seat_interface, static_cast<int>(std::min(version, 1u)), id);
    wl_resource_set_implementation(resource, &Callbacks::seat, nullptr, nullptr);
    wl_seat_send_capabilities(resource, 0);
}

void TestCompositor::bindManager(wl_client* client, void* data, std::uint32_t version,
                                 std::uint32_t id) {
    wl_resource* resource = wl_resource_create(client, &ext_data_control_manager_v1_interface,
                                               static_cast<int>(version), id);
    wl_resource_set_implementation(resource, &Callbacks::manager, data, nullptr);
}

void TestCompositor::call(std::function<void()> work) {
    std::promise<void> done;
    auto finished = done.get_future();
    {
        std::lock_guard lock(callsMutex_);
        calls_.push_back([&] {
            work();
            done.set_value();
        });
    }
    std::uint64_t one = 1;
    [[maybe_unused]] auto n = ::write(wakeFd_.get(), &one, sizeof one);
    finished.wait();
}

void TestCompositor::runCalls() {
    std::vector<std::function<void()>> calls;
    {
        std::lock_guard lock(callsMutex_);
        calls.swap(calls_);
    }
    for (auto& work : calls)
        work();
}

void TestCompositor::setSelection(std::shared_ptr<Owner> owner, bool primary) {
    std::shared_ptr<Owner>& slot = primary ? primary_ : selection_;
    if (slot == owner)
        return;
    // The previous owner hears of it before anybody hears of the new one.
    std::shared_ptr<Owner> previous = std::exchange(slot, std::move(owner));
    if (previous)
        previous->cancel();
    if (!primary) {
        std::lock_guard lock(changesMutex_);
        ++changes_;
        changesChanged_.notify_all();
    }
    for (Device* device : devices_)
        announce(*device, primary);
}

void TestCompositor::announce(Device& device, bool primary) {
    const std::shared_ptr<Owner>& owner = primary ? primary_ : selection_;
    auto tell = primary ? &ext_data_control_device_v1_send_primary_selection
                        : &ext_data_control_device_v1_send_selection;
    if (!owner) {
        tell(device.resource, nullptr);
        return;
    }
    wl_resource* offer = wl_resource_create(wl_resource_get_client(device.resource),
                                            &ext_data_control_offer_v1_interface,
                                            wl_resource_get_version(device.resource), 0);
    wl_resource_set_implementation(offer, &Callbacks::offerImplementation,
                                   new OfferState{this, owner, primary},
                                   &Callbacks::offerDestroyed);
    ext_data_control_device_v1_send_data_offer(device.resource, offer);
    for (const std::string& type : owner->types)
        ext_data_control_offer_v1_send_offer(offer, type.c_str());
    tell(device.resource, offer);
}

void TestCompositor::copyFromApp(Contents contents, Answer answer) {
    auto owner = std::make_shared<AppOwner>(std::move(contents), answer);
    call([&] {
        appOwners_.push_back(owner);
        setSelection(owner, false);
    });
}

void TestCompositor::selectFromApp(Contents contents) {
    auto owner = std::make_shared<AppOwner>(std::move(contents), Answer{});
    call([&] {
        appOwners_.push_back(owner);
        setSelection(owner, true);
    });
}

void TestCompositor::finishDevices() {
    call([&] {
        for (Device* device : devices_)
            ext_data_control_device_v1_send_finished(device->resource);
    });
}

std::uint64_t TestCompositor::selectionChanges() {
    std::lock_guard lock(changesMutex_);
    return changes_;
}

bool TestCompositor::waitForSelectionChanges(std::uint64_t count,
                                             std::chrono::milliseconds timeout) {
    std::unique_lock lock(changesMutex_);
    return changesChanged_.wait_for(lock, timeout, [&] { return changes_ >= count; });
}

bool TestCompositor::waitForRequests(std::uint64_t count, std::chrono::milliseconds timeout) {
    std::unique_lock lock(changesMutex_);
    return changesChanged_.wait_for(lock, timeout, [&] { return requests_ >= count; });
}

std::optional<std::vector<std::string>> TestCompositor::selectionTypes() {
    std::optional<std::vector<std::string>> types;
    call([&] {
        if (selection_)
            types = selection_->types;
    });
    return types;
}

bool TestCompositor::clientOwnsSelection() {
    bool client = false;
    call([&] { client = selection_ && selection_->isClient(); });
    return client;
}

UniqueFd TestCompositor::requestFromOwner(const std::string& type) {
    if (!selection_ || !offers(selection_->types, type))
        return {};
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return {};
    selection_->send(type, UniqueFd(ends[1]));
    return UniqueFd(ends[0]);
}

std::optional<TestCompositor::Bytes> TestCompositor::read(const std::string& type,
                                                          std::chrono::milliseconds timeout) {
    UniqueFd fd;
    call([&] { fd = requestFromOwner(type); });
    if (!fd)
        return std::nullopt;
    Bytes out;
    auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || !readable(fd.get(), static_cast<int>(left.count())))
            return std::nullopt;
        std::uint8_t chunk[65536];
        ssize_t n = ::read(fd.get(), chunk, sizeof chunk);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return n == 0 ? std::optional(std::move(out)) : std::nullopt;
        out.insert(out.end(), chunk, chunk + n);
    }
}

UniqueFd TestCompositor::requestWithoutReading(const std::string& type) {
    UniqueFd fd;
    call([&] { fd = requestFromOwner(type); });
    return fd;
}

}  // namespace zettly::test
