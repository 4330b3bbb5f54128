// SPDX-License-Identifier: Apache-2.0
// One row of a table is an operation on given data, done by several contestants:
//
//     Row("sums", "zonmAdd_mama", typeName<T>, N, count)
//         .into(d).check(error)
//         .calls("zonm", ZONM(zonmAdd_mama), array(a), array(b), array(d), N, N, count)
//         .add("Eigen", [=](int k, int n) { ... objects k to k + n - 1 ... });
//
// Every contestant's result is checked before its first timing; a wrong one ends the program.
#pragma once

#include "data.hpp"

#include <functional>
#include <string>
#include <vector>

namespace bench
{

class Row
{
  public:
    // All `count` objects in one call.
    Row(const std::string &group, const std::string &operation, const std::string &type, int size,
        int count)
        : name_(group + '/' + operation + '/' + type + '/' + std::to_string(size) + '/' +
                std::to_string(count) + '/'),
          objects_(count), perCall_(count)
    {
    }
    // One object per call, `objects` calls in a pass.
    Row &oneByOne(int objects)
    {
        objects_ = objects;
        perCall_ = 1;
        return *this;
    }
    // Memory that a pass writes. It is filled with NaN before a check.
    Row &into(void *data, std::size_t bytes)
    {
        outputs_.push_back({data, bytes});
        return *this;
    }
    template <class T> Row &into(const Objects<T> &o) { return into(o.data, o.size() * sizeof(T)); }
    // How far the results stand from the right ones, in units of the permitted error.
    Row &check(std::function<double()> error)
    {
        error_ = std::move(error);
        return *this;
    }
    // `finish` turns what `work` left into what the check looks at; it is not timed.
    template <class Work>
    Row &add(
        const std::string &contestant, Work work, std::function<void()> finish = [] {})
    {
        const int objects = objects_, perCall = perCall_;
        enter(contestant, std::move(finish), [=] {
            std::int32_t status = 0;
            for (int k = 0; k < objects; k += perCall) {
                if constexpr (std::is_void_v<decltype(work(k, perCall))>)
                    work(k, perCall);
                else
                    status |= work(k, perCall);
            }
            return status;
        });
        return *this;
    }
    // The work is one call; a zonm status other than success is an error.
    template <class F, class... Arguments>
    Row &calls(const std::string &contestant, F *function, Arguments... arguments)
    {
        return add(contestant, callOf(function, arguments...));
    }

  private:
    struct Output {
        void *data;
        std::size_t bytes;
    };
    void enter(const std::string &contestant, std::function<void()> finish,
               std::function<std::int32_t()> pass);

    std::string name_;
    int objects_, perCall_;
    std::vector<Output> outputs_;
    std::function<double()> error_;
};

template <class T> inline constexpr const char *typeName = sizeof(T) == 4 ? "32f" : "64f";

// A group's source enters the function that makes its rows.
struct Group {
    explicit Group(void (*rows)());
};

} // namespace bench
