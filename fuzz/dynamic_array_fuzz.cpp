// Operations on one dynamic array, read from the input, against the naive model. The cell keeps what it remembers of its
// positions through all of them.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "runtime/value/facade.h"
#include "tests/runtime/value/model.h"

using namespace velda;

namespace {

void check(bool holds) {
    if (!holds) std::abort();
}

// Takes numbers and texts off the front of the input.
class Input {
  public:
    explicit Input(std::string_view bytes) : bytes_(bytes) {}

    bool done() const { return bytes_.empty(); }
    int byte() {
        if (bytes_.empty()) return 0;
        const int value = static_cast<unsigned char>(bytes_.front());
        bytes_.remove_prefix(1);
        return value;
    }
    // From -2 to 29, mostly small: padding to far positions only costs time.
    int position() {
        const int value = byte() % 32;
        return value < 24 ? value % 6 : value - 26;
    }
    std::string text() {
        const std::string result(bytes_.substr(0, static_cast<std::size_t>(byte() % 40)));
        bytes_.remove_prefix(std::min(result.size(), bytes_.size()));
        return result;
    }

  private:
    std::string_view bytes_;
};

constexpr std::size_t LongestArray = 20000;

void search(const VAR &array, const std::string &expected, const std::string &wanted, int a, int v, int start) {
    a = std::max(a, 0);
    v = std::max(v, 0);
    const auto never = [](const std::string &) { return false; };
    const model::Location location = model::locate(wanted, expected, a, v, start, never);
    const Located located = locate(wanted, array, a, v, "", start);
    check(located.found == location.found && located.position == location.position);
    const auto place = model::find(expected, start, [&](const std::string &element) { return element == wanted; });
    const Found found = velda::find(wanted, array, start);
    check(found.attribute == place[0] && found.value == place[1] && found.sub_value == place[2]);
    check(dcount(array, AM) == model::dcount(expected, std::string(1, AM)));
    check(velda::count(array, wanted) == model::count(expected, wanted));
}

void operate(VAR &array, std::string &expected, Input &input) {
    const int operation = input.byte() % 8;
    const int a = input.position(), v = input.position(), s = input.position();
    switch (operation) {
        case 0: {
            const std::string value = input.text();
            expected = model::replace(expected, a, v, s, value);
            array(a, v, s) = value;
            break;
        }
        case 1: {
            const std::string value = input.text();
            expected = model::insert(expected, a, v, s, value);
            array.insert(value, a, v, s);
            break;
        }
        case 2:
            expected = model::remove(expected, a, v, s);
            array.remove(a, v, s);
            break;
        case 3: {  // a part of the array is stored into it
            const int from = input.position();
            expected = model::replace(expected, a, v, s, model::extract(expected, from, 0, 0));
            array(a, v, s) = array(from);
            break;
        }
        case 4:
            search(array, expected, input.text(), a, v, s);
            break;
        case 5:
            expected = model::raise(expected);
            VLibERAISE_BBB(nullptr, &array, &array);
            break;
        case 6:
            expected = model::sort(expected);
            VLibESORT_BBB(nullptr, &array, &array);
            break;
        default:
            check(array(a, v, s).view() == model::extract(expected, a, v, s));
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    Input input({reinterpret_cast<const char *>(data), size});
    std::string expected = input.text();
    VAR array = expected;
    while (!input.done() && expected.size() < LongestArray) {
        operate(array, expected, input);
        check(array.view() == expected);
    }
    return 0;
}
