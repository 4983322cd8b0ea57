#ifndef QTAGENT_TESTS_COROUTINES_H
#define QTAGENT_TESTS_COROUTINES_H

#include <coroutine>
#include <exception>
#include <utility>

/// A coroutine that begins at once, and whose frame lives as long as this object.
class Task
{
public:
    struct promise_type
    {
        Task get_return_object() { return Task(std::coroutine_handle<promise_type>::from_promise(*this)); }
        std::suspend_never initial_suspend() noexcept { return {}; }
        std::suspend_always final_suspend() noexcept { return {}; }
        void return_void() {}
        void unhandled_exception() { std::terminate(); }
    };

    Task(Task &&other) noexcept
        : m_handle(std::exchange(other.m_handle, {}))
    {}
    Task &operator=(Task &&) = delete;
    ~Task()
    {
        if (m_handle)
            m_handle.destroy();
    }

    bool isDone() const { return m_handle.done(); }

private:
    explicit Task(std::coroutine_handle<promise_type> handle)
        : m_handle(handle)
    {}

    std::coroutine_handle<promise_type> m_handle;
};

/// A coroutine whose frame is gone with its last line, as that of a slot.
struct Detached
{
    struct promise_type
    {
        Detached get_return_object() { return {}; }
        std::suspend_never initial_suspend() noexcept { return {}; }
        std::suspend_never final_suspend() noexcept { return {}; }
        void return_void() {}
        void unhandled_exception() { std::terminate(); }
    };
};

#endif
