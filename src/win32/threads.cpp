// Threads over the kernel calls of kernel.h: thread (start, start behind a
// gateway, suspend, resume, exit, terminate, wait) and callback_thread.
#include <zel/thread.h>

#include <cerrno>

#include <zel/exception.h>
#include <zel/guards.h>

#include "kernel.h"

namespace zel {

namespace {

// Serialises start_suspended, whose calls share the start counter. Built on
// first use, destroyed at the process's end.
class start_serialiser {
public:
    start_serialiser() : lock_(the_lock()) { lock_.acquire(); }
    ~start_serialiser() { lock_.release(); }
    start_serialiser(start_serialiser const&) = delete;
    start_serialiser& operator=(start_serialiser const&) = delete;

private:
    static mutex& the_lock() {
        static mutex lock;
        return lock;
    }
    mutex& lock_;
};

// Raised by each new thread that will wait at a gateway, polled by
// start_suspended.
std::atomic<std::int32_t> start_counter{0};

} // namespace

// The routine every system thread starts in.
struct thread_entry {
    static unsigned ZEL_KERNEL_CALL run(void* argument) {
        thread* self = static_cast<thread*>(argument);
        if (gateway* gate = self->gate_) {
            kernel::interlocked_increment(start_counter);
            gate->wait();
            self->gate_ = nullptr;
        }
        self->run();
        self->set_status(thread_base::done);
        return 1;
    }
};

thread_base::~thread_base() noexcept(false) = default;

// ---------------------------------------------------------------------------
// thread

thread::thread(unsigned stack_size, void* security) noexcept
    : handle_(nullptr), id_(0), status_(created), priority_(25), stack_size_(stack_size),
      security_(security), gate_(nullptr) {}

thread::thread(thread const&, unsigned stack_size, void* security) noexcept
    : thread_base(), handle_(nullptr), id_(0), status_(created), priority_(25),
      stack_size_(stack_size), security_(security), gate_(nullptr) {}

thread::~thread() noexcept(false) {
    state s = status();
    if (s != created && s != done)
        ZEL_THROW(sync_error("thread not done"));
    if (handle_)
        kernel::close_handle(handle_);
}

int thread::priority() const { return priority_; }

void thread::prioritize(int priority) { priority_ = static_cast<std::int16_t>(priority); }

thread_base::state thread::status() const {
    return static_cast<state>(status_.load(std::memory_order_acquire));
}

void thread::set_status(state s) { status_.store(s, std::memory_order_release); }

void thread::yield() { kernel::sleep(0); }

void thread::exit() { set_status(exit_requested); }

void thread::start() {
    switch (status()) {
    case running:
    case suspended:
    case exit_requested:
        ZEL_THROW(sync_error("bad thread start"));
    case done:
        kernel::close_handle(handle_);
        handle_ = nullptr;
        set_status(created);
        break;
    case created:
        break;
    }
    // Running before the thread exists, so that a thread that ends at once
    // cannot have its "done" overwritten by this call.
    set_status(running);
    std::uint32_t id = 0;
    kernel::handle h = kernel::begin_thread(security_, stack_size_, &thread_entry::run, this, &id);
    if (!h) {
        int error = errno;
        set_status(created);
        if (error == EINVAL)
            ZEL_THROW(sync_error("invalid thread argument"));
        if (error == EAGAIN)
            ZEL_THROW(sync_error("no more threads"));
        return;
    }
    handle_ = h;
    id_ = id;
}

void thread::start_suspended(gateway& gate) {
    start_serialiser serial;
    gate_ = &gate;
    start_counter.store(0);
    start();
    // Until the thread has counted itself in, then a little longer so that
    // it reaches the wait.
    while (start_counter.load() == 0)
        kernel::sleep(0);
    for (int i = 0; i < 20; ++i)
        kernel::sleep(0);
}

void thread::suspend() {
    switch (status()) {
    case running:
        if (kernel::suspend_thread(handle_) == 0xFFFFFFFFu)
            ZEL_THROW(sync_error("suspend() failed"));
        set_status(suspended);
        break;
    case suspended:
        break;  // suspensions do not nest
    default:
        ZEL_THROW(sync_error("cannot suspend() - thread not running"));
    }
}

void thread::resume() {
    switch (status()) {
    case suspended:
        if (kernel::resume_thread(handle_) == 0xFFFFFFFFu)
            ZEL_THROW(sync_error("resume() failed"));
        set_status(running);
        break;
    case running:
        break;
    default:
        ZEL_THROW(sync_error("cannot resume() - thread not running"));
    }
}

void thread::terminate() {
    state s = status();
    if (s != running && s != suspended && s != exit_requested)
        return;
    if (!kernel::terminate_thread(handle_, 0))
        ZEL_THROW(sync_error("terminate() failed"));
    set_status(done);
}

void thread::wait() {
    state s = status();
    if (s != running && s != suspended && s != exit_requested)
        return;
    if (kernel::wait_for_single_object(handle_, kernel::infinite) == kernel::wait_failed)
        ZEL_THROW(sync_error("wait() failed"));
    set_status(done);
}

// ---------------------------------------------------------------------------
// callback_thread

callback_thread::callback_thread(unsigned stack_size, void* security) noexcept
    : thread(stack_size, security), call_(nullptr) {}

callback_thread::callback_thread(initiator const& call, unsigned stack_size, void* security) noexcept
    : thread(stack_size, security), call_(&call) {}

callback_thread::callback_thread(callback_thread const& other, unsigned stack_size,
                                 void* security) noexcept
    : thread(other, stack_size, security), call_(nullptr) {}

callback_thread::~callback_thread() noexcept(false) = default;

void callback_thread::run() {
    if (call_ && *call_)
        (*call_)();
}

} // namespace zel
