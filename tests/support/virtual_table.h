#ifndef VASK_TEST_VIRTUAL_TABLE_H
#define VASK_TEST_VIRTUAL_TABLE_H

#include <cxxabi.h>
#include <dlfcn.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace vask_test {

using slot = const void*;

inline std::string demangled(const char* symbol) {
    int status = 0;
    char* text = abi::__cxa_demangle(symbol, nullptr, nullptr, &status);
    const std::string result = status == 0 ? text : symbol;
    std::free(text);
    return result;
}

/** The function in a slot, or "" where the functions end. */
inline std::string function_in(slot address) {
    Dl_info info;
    if (dladdr(address, &info) == 0 || !info.dli_sname || info.dli_saddr != address) {
        return "";
    }
    return demangled(info.dli_sname);
}

inline std::vector<std::string> functions_from(const slot* table) {
    std::vector<std::string> names;
    for (std::string name; !(name = function_in(*table)).empty(); ++table) {
        names.push_back(name);
    }
    return names;
}

/** The functions in the first virtual table of an object of exactly this class. */
template <typename Class>
std::vector<std::string> virtual_functions(const Class& object) {
    return functions_from(*reinterpret_cast<const slot* const*>(&object));
}

}  // namespace vask_test

#endif
