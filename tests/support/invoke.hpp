// SPDX-License-Identifier: Apache-2.0
// Calling any export with arguments that are known at run time only.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <variant>

#include "zonm.h"

namespace test
{

// A pointer, an integer or a number by value.
class Argument
{
  public:
    Argument() = default;
    Argument(const volatile void *p) : value(const_cast<const void *>(p)) {}
    Argument(std::int32_t n) : value(n) {}
    Argument(double x) : value(x) {}

    // Throws where the prototype wants another kind than was given.
    template <class P> P as() const
    {
        if constexpr (std::is_pointer_v<P>)
            return static_cast<P>(const_cast<void *>(std::get<const void *>(value)));
        else if constexpr (std::is_same_v<P, std::int32_t>)
            return std::get<std::int32_t>(value);
        else
            return static_cast<P>(std::get<double>(value));
    }

  private:
    std::variant<std::monostate, const void *, std::int32_t, double> value;
};

// Throws if there is no such export or it takes another number of arguments. A fault in the call
// ends the process; it is reported with the description.
ZonStatus invoke(std::string_view exportName, std::span<const Argument> arguments,
                 std::string_view description = {});

} // namespace test
