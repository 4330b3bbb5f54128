// SPDX-License-Identifier: Apache-2.0
// The exports as zonm.json states them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace test
{

struct ArgumentInfo {
    std::string name, type, role, operand;
};

struct OperandInfo {
    std::string name, kind; // matrix, vector, constant
    bool array, transposed, output;
};

struct Check {
    std::string step, status;
    std::vector<std::string> arguments;
};

struct Export {
    int ordinal;
    std::string name, family, operation, group, element, description, returns;
    std::vector<OperandInfo> operands;
    std::vector<ArgumentInfo> arguments;
    std::vector<Check> checks;
    std::vector<std::string> statuses;

    const ArgumentInfo *argument(std::string_view name) const; // null if there is none
    const OperandInfo *operand(std::string_view name) const;
};

// All 874, by ordinal.
const std::vector<Export> &allExports();

// What a family's test loops over; throws if there is none.
std::vector<const Export *> exportsOf(std::string_view family);

const Export &exportNamed(std::string_view name); // throws if there is none

} // namespace test
