// secret.hpp - a password on its way through the broker: in one place at a time, wiped when it goes.
#pragma once

#include "wire/broker.hpp"

#include <string.h>
#include <string_view>
#include <utility>

namespace broker {

class secret
{
public:
    static constexpr std::size_t most = sizeof(wire::allocate::password);

    secret() = default;
    explicit secret(std::string_view text) // what is longer is cut off
    {
        memcpy(text_, text.data(), text.size() < most ? text.size() : most);
    }
    secret(secret &&from) noexcept { *this = std::move(from); }
    secret &operator=(secret &&from) noexcept
    {
        if (this != &from)
        {
            memcpy(text_, from.text_, sizeof text_);
            from.wipe();
        }
        return *this;
    }
    ~secret() { wipe(); }

    const char *text() const { return text_; } // zero-terminated
    void wipe() { explicit_bzero(text_, sizeof text_); }

private:
    char text_[most + 1] = {};
};

} // namespace broker
