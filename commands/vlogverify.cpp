// vlogverify: a set or files of a set checked, each fault with its file and offset.
#include "commands/actions.h"
#include "commands/journal_source.h"
#include "commands/operands.h"

namespace velda::commands {

namespace {

using namespace velda::journal;

constexpr std::string_view Name = "vlogverify";

enum Verdict : int { Sound = 0, DamagedEnd = 3, DamagedInside = 4, Unreadable = 5 };

std::string_view verdict_word(Verdict verdict) {
    return verdict == Sound ? "sound" : verdict == DamagedEnd ? "damaged at its end" : "damaged inside";
}

class Checker : public LogVisitor {
  public:
    explicit Checker(const LogSource &source) : source_(source) {}

    bool record(const LogHeader &, const unsigned char *) override { return true; }
    void fault(const LogFault &fault) override {
        constexpr std::size_t MostShown = 1000;
        if (++count_ <= MostShown) faults_.push_back(fault);
    }

    std::string for_people() const {
        std::string text;
        for (const LogFault &fault : faults_)
            text += source_.paths[fault.place.file] + " offset " + std::to_string(fault.place.offset) + ": " +
                    fault.reason + "\n";
        if (count_ > faults_.size()) text += std::to_string(count_ - faults_.size()) + " more\n";
        return text;
    }
    std::vector<JsonObject> as_json() const {
        std::vector<JsonObject> objects;
        for (const LogFault &fault : faults_)
            objects.push_back(JsonObject()
                                  .text("path", source_.paths[fault.place.file])
                                  .number("offset", std::to_string(fault.place.offset))
                                  .text("reason", fault.reason));
        return objects;
    }

  private:
    const LogSource &source_;
    std::vector<LogFault> faults_;
    std::size_t count_ = 0;
};

Verdict verdict_of(const ScanResult &result) {
    return !result.has_faults ? Sound : result.is_damaged_inside ? DamagedInside : DamagedEnd;
}

std::string report(const LogSource &source, const Checker &checker, const ScanResult &result) {
    std::string text = checker.for_people();
    text += source_name(source) + " is " + std::string(verdict_word(verdict_of(result))) + ": " +
            std::to_string(result.records) + " records of " + std::to_string(result.record_bytes) + " bytes";
    if (result.without_crc > 0) text += ", " + std::to_string(result.without_crc) + " without a checksum";
    if (source.is_member) text += "; records that reach into other files of the set were not checked";
    return text + "\n";
}

std::string report_as_json(const LogSource &source, const Checker &checker, const ScanResult &result) {
    const std::string head = JsonObject()
                                 .text("source", source_name(source))
                                 .text("verdict", verdict_word(verdict_of(result)))
                                 .number("records", std::to_string(result.records))
                                 .number("bytes", std::to_string(result.record_bytes))
                                 .number("without_checksum", std::to_string(result.without_crc))
                                 .str();
    return head.substr(0, head.size() - 1) + ", \"faults\": " + json_array(checker.as_json()) + "}\n";
}

}  // namespace

void journal_verify(DP *dp, const Words &words) {
    Words operands = words;
    const bool as_json = take_option(operands, "--json");
    const auto source = source_operand(dp, Name, operands);
    if (!source) fail_with(std::string(Name) + ": " + source.error().message, Unreadable);
    Checker checker(*source);
    const auto result = verify_log(dp, *source, checker);
    if (!result) fail_with(std::string(Name) + ": " + result.error().message, Unreadable);
    show_text(as_json ? report_as_json(*source, checker, *result) : report(*source, checker, *result));
    if (const Verdict verdict = verdict_of(*result)) exit_command(verdict);
}

}  // namespace velda::commands
