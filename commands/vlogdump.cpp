// vlogdump: records of the journal as lines of text, as JSON, or counted.
#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <optional>

#include "commands/actions.h"
#include "commands/journal_source.h"
#include "commands/log_text.h"
#include "commands/operands.h"
#include "journal/log_reading.h"

namespace velda::commands {

namespace {

using namespace velda::journal;

constexpr std::string_view Name = "vlogdump";

enum ExitCode : int { DamagePassed = 1, NothingRead = 3 };

// --- options --------------------------------------------------------------------------------------------------------

// What is wanted of the records: everything that is not set.
struct Filter {
    std::optional<std::string> file, id;
    std::array<bool, 256> types{};
    bool any_type = true;
    std::optional<std::int64_t> port, pid, from, to;
};

struct Options {
    Filter filter;
    std::optional<std::string> key;
    bool with_data = false, only_counts = false, as_json = false, follows = false;
    Words operands;
};

std::int64_t number_of(const std::string &word) {
    std::int64_t number = 0;
    const char *const end = word.data() + word.size();
    const auto [last, error] = std::from_chars(word.data(), end, number);
    if (error != std::errc() || last != end) usage_error(Name, "'" + word + "' is not a number");
    return number;
}

std::int64_t time_of(const std::string &word) {
    if (!word.empty() && word.find_first_not_of("0123456789") == std::string::npos) return number_of(word);
    std::tm parts{};
    for (const char *const form : {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%dT%H:%M:%SZ", "%Y-%m-%d"}) {
        parts = {};
        const char *const end = strptime(word.c_str(), form, &parts);
        if (end && *end == 0) return timegm(&parts);
    }
    usage_error(Name, "'" + word + "' is not a time");
}

void take_types(Filter &filter, const std::string &list) {
    filter.any_type = false;
    const VAR names = change(VAR(list), ",", std::string(1, AM));
    for (int n = 1; n <= dcount(names, AM); ++n) {
        const std::string name = upcase(VAR(names(n))).str();
        bool is_known = false;
        for (std::size_t type = 0; type < RecordTypeNames.size(); ++type) {
            if (RecordTypeNames[type] != name) continue;
            filter.types[type] = is_known = true;
        }
        if (!is_known) usage_error(Name, "'" + name + "' is no type of record");
    }
}

struct Option {
    std::string_view word;
    bool has_operand;
    void (*take)(Options &options, const std::string &operand);
};

constexpr Option AllOptions[] = {
    {"--key", true, [](Options &options, const std::string &word) { options.key = word; }},
    {"--file", true, [](Options &options, const std::string &word) { options.filter.file = word; }},
    {"--id", true, [](Options &options, const std::string &word) { options.filter.id = word; }},
    {"--type", true, [](Options &options, const std::string &word) { take_types(options.filter, word); }},
    {"--port", true, [](Options &options, const std::string &word) { options.filter.port = number_of(word); }},
    {"--pid", true, [](Options &options, const std::string &word) { options.filter.pid = number_of(word); }},
    {"--from", true, [](Options &options, const std::string &word) { options.filter.from = time_of(word); }},
    {"--to", true, [](Options &options, const std::string &word) { options.filter.to = time_of(word); }},
    {"--data", false, [](Options &options, const std::string &) { options.with_data = true; }},
    {"--stats", false, [](Options &options, const std::string &) { options.only_counts = true; }},
    {"--json", false, [](Options &options, const std::string &) { options.as_json = true; }},
    {"--follow", false, [](Options &options, const std::string &) { options.follows = true; }},
};

const Option &find_option(const std::string &word) {
    const auto *const found = std::find_if(std::begin(AllOptions), std::end(AllOptions),
                                           [&](const Option &each) { return each.word == word; });
    if (found == std::end(AllOptions)) usage_error(Name, "'" + word + "' is no option");
    return *found;
}

void check_together(const Options &options) {
    if (options.key && (options.follows || options.only_counts || !options.operands.empty()))
        usage_error(Name, "--key names one record: nothing else can be asked for");
    if (options.follows && options.only_counts) usage_error(Name, "--follow and --stats exclude each other");
    if (options.follows &&
        (options.operands.size() > 1 || (options.operands.size() == 1 && set_number(options.operands[0]) == 0)))
        usage_error(Name, "--follow needs a set");
}

Options parse(const Words &words) {
    Options options;
    for (std::size_t n = 0; n < words.size(); ++n) {
        if (!words[n].starts_with('-')) {
            options.operands.push_back(words[n]);
            continue;
        }
        const Option &option = find_option(words[n]);
        if (option.has_operand && n + 1 == words.size()) usage_error(Name, "'" + words[n] + "' needs a word behind it");
        option.take(options, option.has_operand ? words[++n] : std::string());
    }
    check_together(options);
    return options;
}

// --- the filter -----------------------------------------------------------------------------------------------------

bool matches(const std::optional<std::string> &wanted, std::string_view text) {
    if (!wanted) return true;
    return wanted->ends_with('*') ? text.starts_with(std::string_view(*wanted).substr(0, wanted->size() - 1))
                                  : text == *wanted;
}

bool header_passes(const Filter &filter, const LogHeader &header) {
    return (filter.any_type || filter.types[header.type]) && (!filter.port || header.port == *filter.port) &&
           (!filter.pid || header.pid == *filter.pid) && (!filter.from || header.time >= *filter.from) &&
           (!filter.to || header.time <= *filter.to);
}

bool texts_pass(const Filter &filter, const LogParts &record) {
    return matches(filter.file, record.texts[static_cast<std::size_t>(RecordString::FileName)]) &&
           matches(filter.id, record.texts[static_cast<std::size_t>(RecordString::Key)]);
}

// --- counts ---------------------------------------------------------------------------------------------------------

struct Counts {
    std::array<std::int64_t, 256> records{}, bytes{};
    std::int64_t in_transactions = 0, first_time = 0, last_time = 0, all = 0, all_bytes = 0;

    void add(const LogHeader &header) {
        ++records[header.type];
        bytes[header.type] += header.record_size;
        in_transactions += header.flags & InTransaction;
        if (all++ == 0) first_time = header.time;
        all_bytes += header.record_size;
        last_time = header.time;
    }
    std::string for_people() const;
    std::string as_json() const;
};

std::string Counts::for_people() const {
    char line[80];
    std::string text = "Type            Records          Bytes\n";
    for (std::size_t type = 0; type < records.size(); ++type) {
        if (records[type] == 0) continue;
        std::snprintf(line, sizeof line, "%-13s%10lld%15lld\n",
                      std::string(record_type_name(static_cast<std::uint8_t>(type))).c_str(),
                      static_cast<long long>(records[type]), static_cast<long long>(bytes[type]));
        text += line;
    }
    std::snprintf(line, sizeof line, "%-13s%10lld%15lld\n", "all", static_cast<long long>(all),
                  static_cast<long long>(all_bytes));
    text += line;
    if (all == 0) return text;
    return text + "In transactions: " + std::to_string(in_transactions) + "\nFrom " + utc_text(first_time) + " to " +
           utc_text(last_time) + "\n";
}

std::string Counts::as_json() const {
    std::vector<JsonObject> types;
    for (std::size_t type = 0; type < records.size(); ++type)
        if (records[type] != 0)
            types.push_back(JsonObject()
                                .text("type", record_type_name(static_cast<std::uint8_t>(type)))
                                .number("type_number", std::to_string(type))
                                .number("records", std::to_string(records[type]))
                                .number("bytes", std::to_string(bytes[type])));
    const std::string head = JsonObject()
                                 .number("records", std::to_string(all))
                                 .number("bytes", std::to_string(all_bytes))
                                 .number("in_transactions", std::to_string(in_transactions))
                                 .number("first_time", std::to_string(first_time))
                                 .number("last_time", std::to_string(last_time))
                                 .str();
    return head.substr(0, head.size() - 1) + ", \"types\": " + json_array(types) + "}\n";
}

// --- the dump -------------------------------------------------------------------------------------------------------

class Dumper : public LogVisitor {
  public:
    Dumper(DP *dp, const Options &options) : dp_(dp), options_(options), text_of_(options.as_json, options.with_data) {}

    bool record(const LogHeader &header, const unsigned char *record) override {
        if (!header_passes(options_.filter, header)) return true;
        const bool looks_at_texts = options_.filter.file || options_.filter.id;
        if (options_.only_counts && !looks_at_texts) {
            counts_.add(header);
            return true;
        }
        const LogParts parts(header, record);
        if (texts_pass(options_.filter, parts)) take(parts);
        return true;
    }

    // Damage is told where it stands among the records.
    void fault(const LogFault &fault) override {
        flush();
        VELDAfprintf(dp_, stderr, "%s: %s offset %lld: %s\n", std::string(Name).c_str(),
                     source_->paths[fault.place.file].c_str(), static_cast<long long>(fault.place.offset),
                     fault.reason.c_str());
    }

    void finish() {
        if (options_.only_counts) output_ += options_.as_json ? counts_.as_json() : counts_.for_people();
        flush();
    }
    void flush() {
        if (!output_.empty()) show_text(output_);
        output_.clear();
        VELDAfflush(dp_, stdout);
    }
    void read_from(const LogSource &source) { source_ = &source; }

  private:
    static constexpr std::size_t PieceBytes = 65536;

    void take(const LogParts &record) {
        if (options_.only_counts)
            counts_.add(record.header);
        else
            text_of_.add(output_, record);
        if (output_.size() >= PieceBytes) {
            show_text(output_);
            output_.clear();
        }
    }

    DP *dp_;
    const Options &options_;
    const LogSource *source_ = nullptr;
    LogText text_of_;
    Counts counts_;
    std::string output_;
};

[[noreturn]] void fail_unread(const std::string &reason) { fail_with(std::string(Name) + ": " + reason, NothingRead); }

// The data is shown under the same condition as everywhere else.
void check_right(DP *dp, const Options &options) {
    if (!options.with_data) return;
    const char *const allowed = std::getenv("ALLOWLOGDATA");
    if (!allowed || std::strcmp(allowed, "on") != 0) fail_unread("--data needs ALLOWLOGDATA=on in the environment");
    const VELDALoggerConfig *const config = VediLoggerInit(dp, 1);
    if (config != VELDA_LOGGER_NOT_MAPPED && config->password[0] != 0 && VELDALoggerTestPassword(dp) != 0)
        fail_unread("the journal password is incorrect");
}

void dump_key(DP *dp, const std::string &key, Dumper &dumper) {
    int32_t file = 0, set = 0;
    int64_t offset = 0, time = 0;
    VELDALoggerSplitKey(dp, &file, &set, &offset, &time, key.data(), static_cast<int>(key.size()));
    const unsigned char *const record = VELDALoggerReadRecord(dp, nullptr, file, set, offset, time, nullptr);
    if (!record)
        fail_unread(errno == VELDA_LOGGER_DAMAGED ? "no whole record has the key '" + key + "'"
                                                  : "cannot read the record '" + key + "': " + std::strerror(errno));
    dumper.record(LogHeader(record), record);
    dumper.finish();
}

Dumper *following = nullptr;  // shows what there is before a wait
void show_before_wait(DP *, int code, ...) {
    constexpr int WaitBegins = 3;
    if (code == WaitBegins) following->flush();
}

void follow(DP *dp, const Options &options, Dumper &dumper) {
    const std::string set = options.operands.empty() ? "current" : options.operands[0];
    VAR error;
    LogSelect *select = VELDALoggerSelectStart(dp, ("set=" + set + " terminate=wait retry=1").c_str(), 0, &error);
    if (!select) fail_unread(error.str());
    following = &dumper;
    while (const unsigned char *const record = VELDALoggerReadnext(dp, select, show_before_wait))
        dumper.record(LogHeader(record), record);
    const int reason = errno % 2048;
    dumper.finish();
    VELDALoggerSelectEnd(dp, &select);
    if (reason % 256 != 2) fail_with(std::string(Name) + ": reading ended with error " + std::to_string(reason), 1);
}

void dump(DP *dp, const Options &options, Dumper &dumper) {
    const auto source = source_operand(dp, Name, options.operands);
    if (!source) fail_unread(source.error().message);
    dumper.read_from(*source);
    const auto result = scan_log(dp, *source, dumper);
    dumper.finish();
    if (!result) fail_unread(result.error().message);
    if (result->has_faults) exit_command(DamagePassed);
}

}  // namespace

void journal_dump(DP *dp, const Words &words) {
    const Options options = parse(words);
    check_right(dp, options);
    Dumper dumper(dp, options);
    if (options.key)
        dump_key(dp, *options.key, dumper);
    else if (options.follows)
        follow(dp, options, dumper);
    else
        dump(dp, options, dumper);
}

}  // namespace velda::commands
