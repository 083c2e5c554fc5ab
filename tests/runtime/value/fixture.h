// fixture.h - verbs for tests of values: operations on visible text, in which ^ ] \ stand for AM, VM and SVM.
#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "runtime/value/facade.h"
#include "tests/support/marks.h"

inline void PrintTo(const VAR &value, std::ostream *out) { *out << '"' << shown(value.view()) << '"'; }

namespace velda {

inline void PrintTo(const ConstElement &value, std::ostream *out) { *out << '"' << shown(value.view()) << '"'; }

namespace test {

// A cell with the text of `visible`.
inline VAR cell(std::string_view visible) { return VAR(marks(visible)); }

inline std::string extract(std::string_view array, int a, int v = 0, int s = 0) {
    VAR target;
    VLibEEXTRACT_BBBIII(nullptr, &target, Argument(marks(array)), a, v, s);
    return shown(target.view());
}

inline std::string replace(std::string_view array, int a, int v, int s, std::string_view value) {
    VAR variable = cell(array);
    VLibECOMPLEX_STORE_VBIIIIIIB(nullptr, &variable, a, v, s, 0, 0, 0, Argument(marks(value)));
    return shown(variable.view());
}
inline std::string replace(std::string_view array, int a, std::string_view value) {
    return replace(array, a, 0, 0, value);
}

inline std::string insert(std::string_view array, int a, int v, int s, std::string_view value) {
    VAR target;
    VLibEINSERT_BBBBIII(nullptr, &target, Argument(marks(array)), Argument(marks(value)), a, v, s);
    return shown(target.view());
}

inline std::string remove(std::string_view array, int a, int v = 0, int s = 0) {
    VAR target;
    VLibEDELETE_BBBIII(nullptr, &target, Argument(marks(array)), a, v, s);
    return shown(target.view());
}

}  // namespace test
}  // namespace velda
