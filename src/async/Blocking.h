#pragma once

// Runs a coroutine to its end from plain code (a command-line front end, a
// benchmark) by spinning a nested event loop, and rethrows what it threw.
// QCoro::waitFor() alone never returns when the task throws. Never call this from
// the application's own event handlers.

#include <qcoro/qcorotask.h>

#include <exception>
#include <optional>

namespace Async {

namespace detail {
template <typename T>
QCoro::Task<std::optional<T>> catching(QCoro::Task<T> task, std::exception_ptr* error) {
    try {
        T value = co_await task;
        co_return std::optional<T>(std::move(value));
    } catch (...) {
        *error = std::current_exception();
    }
    co_return std::nullopt;
}

inline QCoro::Task<bool> catchingVoid(QCoro::Task<> task, std::exception_ptr* error) {
    try {
        co_await task;
    } catch (...) {
        *error = std::current_exception();
    }
    co_return true;
}
} // namespace detail

template <typename T> T waitFor(QCoro::Task<T> task) {
    std::exception_ptr error;
    std::optional<T> result = QCoro::waitFor(detail::catching(std::move(task), &error));
    if (error) {
        std::rethrow_exception(error);
    }
    return std::move(*result);
}

inline void waitFor(QCoro::Task<> task) {
    std::exception_ptr error;
    QCoro::waitFor(detail::catchingVoid(std::move(task), &error));
    if (error) {
        std::rethrow_exception(error);
    }
}

} // namespace Async
