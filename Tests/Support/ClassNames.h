// SPDX-License-Identifier: MIT
// Names typed tests after their classes: AnyElement/CuePoint in place of AnyElement/24.
#pragma once

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <typeinfo>

struct ClassNames {
    template <class Type>
    static std::string GetName(int) {
        const std::unique_ptr<char, void (*)(void*)> name(
            abi::__cxa_demangle(typeid(Type).name(), nullptr, nullptr, nullptr), std::free);
        const std::string whole = name.get();
        return whole.substr(whole.rfind(':') + 1); // without its namespace
    }
};
