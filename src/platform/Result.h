#pragma once

#include <utility>
#include <variant>

namespace nimbrel {

// A value or an error, never both. Completions and decoders hand these out.
template <class T, class E>
class Result {
public:
    Result(T value) : m_state(std::in_place_index<0>, std::move(value)) {}
    Result(E error) : m_state(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return m_state.index() == 0; }
    explicit operator bool() const { return ok(); }

    const T& value() const& { return std::get<0>(m_state); }
    T& value() & { return std::get<0>(m_state); }
    T&& value() && { return std::get<0>(std::move(m_state)); }
    const E& error() const { return std::get<1>(m_state); }

    const T* operator->() const { return &value(); }
    const T& operator*() const { return value(); }

    friend bool operator==(const Result&, const Result&) = default;

private:
    std::variant<T, E> m_state;
};

} // namespace nimbrel
