// SPDX-License-Identifier: Apache-2.0
// The grammar of the exports a second time: from a name to its arguments and the order in which
// they are judged. It shares nothing with the manifest under tools/, against which it is the
// witness.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace test
{

struct Signature {
    struct Argument {
        std::string type, name;
        bool operator==(const Argument &) const = default;
    };
    struct Step {
        std::string name; // pointers, count, sizes, shapes, strides, shifts, stride0 if many
        std::vector<std::string> arguments;
        bool operator==(const Step &) const = default;
    };

    std::string name;
    std::vector<Argument> arguments;
    std::vector<Step> steps;
    // Where shapes are judged: what to add to one of the sizes, all being equal, for a misfit.
    std::vector<std::pair<std::string, int>> misfits;
};

// The status of a step's fault.
int statusOf(std::string_view step);

// Every export that returns a status, in the order in which the families are listed.
const std::vector<Signature> &signatures();
const Signature &signatureOf(std::string_view name); // throws if there is none

} // namespace test
