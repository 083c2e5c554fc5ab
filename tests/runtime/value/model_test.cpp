// Random operations on arrays and texts against the naive model. VELDA_TEST_SEED repeats a run.
#include "tests/runtime/value/model.h"
#include "tests/runtime/value/fixture.h"
#include "tests/runtime/value/random.h"

using namespace velda;

namespace {

class Random : public velda::test::Random {
  public:
    int number(int low, int high) { return small(low, high); }
    // Mostly short, now and then beyond any block that is searched at once.
    std::string array() {
        static const std::string alphabet = marks("ab01^^^]]\\.-x");
        return text(one_in(8) ? 700 : 30, alphabet);
    }
    std::string element() { return one_in(6) ? array() : text(one_in(6) ? 60 : 4, "ab01.-"); }
    int position() { return one_in(6) ? -1 : one_in(12) ? number(5, 60) : number(0, 5); }
};

std::string seen(std::string_view text) { return shown(text); }

}  // namespace

TEST(Model, ElementsOfOneVariableThroughManyChanges) {
    Random random;
    for (int round = 0; round < 400; ++round) {
        std::string expected = random.array();
        VAR array(expected);
        for (int step = 0; step < 60; ++step) {
            const int a = random.position(), v = random.position(), s = random.position();
            const std::string value = random.element();
            SCOPED_TRACE(seen(expected) + " <" + std::to_string(a) + "," + std::to_string(v) + "," + std::to_string(s) +
                         "> " + seen(value));
            switch (random.number(0, 5)) {
                case 0:
                    expected = model::replace(expected, a, v, s, value);
                    array(a, v, s) = value;
                    break;
                case 1:
                    expected = model::insert(expected, a, v, s, value);
                    array.insert(value, a, v, s);
                    break;
                case 2:
                    expected = model::remove(expected, a, v, s);
                    array.remove(a, v, s);
                    break;
                case 3: {  // the value is a part of the array itself
                    const int from = random.number(1, 4);
                    expected = model::replace(expected, a, v, s, model::extract(expected, from, 0, 0));
                    array(a, v, s) = array(from);
                    break;
                }
                default:
                    break;
            }
            ASSERT_EQ(seen(array.view()), seen(expected));
            for (int read = 0; read < 4; ++read) {
                const int a2 = random.number(-1, 12), v2 = random.number(-1, 5), s2 = random.number(0, 3);
                ASSERT_EQ(seen(array(a2, v2, s2)), seen(model::extract(expected, a2, v2, s2)))
                    << a2 << ' ' << v2 << ' ' << s2;
            }
            if (expected.size() > 5000) array = expected = random.array();
        }
    }
}

TEST(Model, OperationsIntoAnotherCell) {
    Random random;
    VAR target = "what it held before";
    for (int round = 0; round < 20000; ++round) {
        const std::string array = random.array(), value = random.element();
        const int a = random.position(), v = random.position(), s = random.position();
        SCOPED_TRACE(seen(array) + " <" + std::to_string(a) + "," + std::to_string(v) + "," + std::to_string(s) + "> " +
                     seen(value));
        VLibEINSERT_BBBBIII(nullptr, &target, Argument(array), Argument(value), a, v, s);
        ASSERT_EQ(seen(target.view()), seen(model::insert(array, a, v, s, value)));
        VLibEDELETE_BBBIII(nullptr, &target, Argument(array), a, v, s);
        ASSERT_EQ(seen(target.view()), seen(model::remove(array, a, v, s)));
        VLibEEXTRACT_BBBIII(nullptr, &target, Argument(array), a, v, s);
        ASSERT_EQ(seen(target.view()), seen(model::extract(array, a, v, s)));
    }
}

TEST(Model, LocateWithoutOrder) {
    Random random;
    for (int round = 0; round < 20000; ++round) {
        const VAR array(random.array());
        const std::string wanted = random.text(2, marks("ab01^"));
        const int a = random.number(0, 4), v = random.number(0, 3), start = random.number(0, 6);
        SCOPED_TRACE(seen(wanted) + " in " + seen(array.view()) + " <" + std::to_string(a) + "," + std::to_string(v) +
                     "> from " + std::to_string(start));
        const model::Location expected =
            model::locate(wanted, array.str(), a, v, start, [](const std::string &) { return false; });
        const Located located = velda::locate(wanted, array, a, v, "", start);
        ASSERT_EQ(located.found, expected.found);
        ASSERT_EQ(located.position, expected.position);
    }
}

TEST(Model, LocateInSortedLists) {
    Random random;
    for (int round = 0; round < 5000; ++round) {
        const std::string array = model::sort(random.text(40, marks("ab01^^"))), wanted = random.text(2, "ab01");
        SCOPED_TRACE(seen(wanted) + " in " + seen(array));
        const model::Location expected =
            model::locate(wanted, array, 0, 0, 1, [&](const std::string &e) { return e > wanted; });
        const Located located = velda::locate(wanted, array, 0, 0, "AL");
        ASSERT_EQ(located.found, expected.found);
        ASSERT_EQ(located.position, expected.position);
    }
}

TEST(Model, FindAndFindstr) {
    Random random;
    for (int round = 0; round < 20000; ++round) {
        const std::string array = random.array(), wanted = random.text(2, "ab01");
        const int occurrence = random.number(0, 4);
        SCOPED_TRACE(seen(wanted) + " in " + seen(array) + " occurrence " + std::to_string(occurrence));
        const Found found = velda::find(wanted, array, occurrence);
        const std::array<int, 3> expected =
            model::find(array, occurrence, [&](const std::string &e) { return e == wanted; });
        ASSERT_EQ((std::array<int, 3>{found.attribute, found.value, found.sub_value}), expected);
        ASSERT_EQ(found.found, expected[0] > 0);
        const Found holds = velda::findstr(wanted, array, occurrence);
        const std::array<int, 3> holding = model::find(array, occurrence, [&](const std::string &e) {
            return !wanted.empty() && e.find(wanted) != std::string::npos;
        });
        ASSERT_EQ((std::array<int, 3>{holds.attribute, holds.value, holds.sub_value}), holding);
    }
}

TEST(Model, DelimitersAndSubstrings) {
    Random random;
    for (int round = 0; round < 20000; ++round) {
        const std::string text = random.array(), part = random.text(2, marks("ab01^]"));
        const int first = random.number(-1, 6), number = random.number(-1, 4);
        SCOPED_TRACE(seen(part) + " in " + seen(text) + " " + std::to_string(first) + " " + std::to_string(number));
        ASSERT_EQ(velda::count(text, part), model::count(text, part));
        ASSERT_EQ(velda::dcount(text, part), model::dcount(text, part));
        ASSERT_EQ(velda::index(text, part, first), model::index(text, part, first));
        ASSERT_EQ(seen(velda::field(text, part, first, number).view()), seen(model::field(text, part, first, number)));
        const int start = random.number(-12, 40), length = random.number(-12, 40);
        ASSERT_EQ(seen(velda::substring(text, start, length).view()), seen(model::substring(text, start, length)))
            << start << "," << length;
    }
}

TEST(Model, TextReplaced) {
    Random random;
    VAR in_place;
    for (int round = 0; round < 20000; ++round) {
        const std::string text = random.array(), from = random.text(3, marks("ab01^")),
                          to = random.text(3, marks("ab] "));
        const int occurrences = random.number(-1, 4), start = random.number(0, 3);
        SCOPED_TRACE(seen(text) + ": " + seen(from) + " to " + seen(to));
        ASSERT_EQ(seen(velda::change(text, from, to, occurrences, start).view()),
                  seen(model::change(text, from, to, occurrences, start)));
        ASSERT_EQ(seen(velda::convert(text, from, to).view()), seen(model::convert(text, from, to)));
        in_place = text;
        change_in(in_place, from, to);
        ASSERT_EQ(seen(in_place.view()), seen(model::change(text, from, to, -1, 1)));
        in_place = text;
        const int a = random.number(0, 4), v = random.number(0, 3);
        convert_in(in_place, from, to, a, v);
        const std::string element = model::extract(text, a, v, 0);
        // An element that is absent or empty stays as it is.
        const std::string expected =
            element.empty() ? text : model::replace(text, a, v, 0, model::convert(element, from, to));
        ASSERT_EQ(seen(in_place.view()), seen(expected));
        ASSERT_EQ(seen(velda::raise(text).view()), seen(model::raise(text)));
        ASSERT_EQ(seen(velda::lower(text).view()), seen(model::lower(text)));
        ASSERT_EQ(seen(velda::sort(text).view()), seen(model::sort(text)));
    }
}

TEST(Model, Trim) {
    Random random;
    for (int round = 0; round < 20000; ++round) {
        const std::string text = random.text(random.one_in(5) ? 200 : 12, "  ab");
        const char byte = random.one_in(2) ? ' ' : 'a';
        const char type = "LTBAR"[random.number(0, 4)];
        ASSERT_EQ(velda::trim(text, byte, type).view(), model::trim(text, byte, type)) << text << "|" << byte << type;
        ASSERT_EQ(velda::trim(text).view(), model::trim(text, ' ', 'R')) << text;
    }
}

TEST(Model, Matches) {
    Random random;
    const char *const pieces[] = {"0N", "1N", "2N", "0A", "1A", "0X", "1X", "1C", "0C", "'a'", "\"1\"", "'-'", "'a1'"};
    int matched = 0;
    for (int round = 0; round < 20000; ++round) {
        const std::string text = random.text(8, "a1-b2");
        std::string pattern;
        for (int i = random.number(1, 5); i > 0; --i) {
            pattern += pieces[random.number(0, static_cast<int>(std::size(pieces)) - 1)];
            if (random.one_in(6) && i > 1) pattern += VM;
        }
        const bool expected = model::matches(text, pattern);
        matched += expected;
        ASSERT_EQ(velda::matches(text, pattern), expected) << text << " against " << seen(pattern);
    }
    EXPECT_GT(matched, 500) << "the random patterns must match now and then";
}

TEST(Model, Sum) {
    Random random;
    for (int round = 0; round < 3000; ++round) {
        const std::string array = random.text(40, marks("159-x^]\\"));
        long long expected = 0;
        for (const std::string &attribute : model::split(array, AM))
            for (const std::string &value : model::split(attribute, VM))
                for (const std::string &element : model::split(value, SVM)) {
                    const bool numeric =
                        element.find('-', 1) == std::string::npos && element.find('x') == std::string::npos;
                    if (numeric && element != "-" && element.size() < 18 && !element.empty())
                        expected += std::stoll(element);
                }
        ASSERT_EQ(velda::sum(array).to_integer(), expected) << seen(array);
    }
}
