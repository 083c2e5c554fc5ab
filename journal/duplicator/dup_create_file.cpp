// The making of a file from the creation block of its record.
#include "journal/duplicator/dup_apply.h"

namespace velda::journal {

namespace {

constexpr int ArgumentsEnd = -1;

struct CreationBlock {
    std::string type;
    std::string driver_text;
    std::vector<std::string> arguments;
    std::string before_operation;  // VEDI_PREFILEOP
    std::string after_operation;   // VEDI_POSTFILEOP
    std::string create_operation;  // VEDI_CREATEFILE
    std::uint32_t value = 0;       // of the create call; the two behind it are not applied
};

bool read_arguments(std::string_view field, std::vector<std::string> &arguments) {
    PayloadReader reader(field);
    const std::uint32_t count = reader.number();
    for (std::uint32_t i = 0; i < count && reader.whole(); ++i) arguments.emplace_back(reader.counted_text());
    return reader.whole();
}

bool read_creation_block(std::string_view payload, CreationBlock &block) {
    PayloadReader reader(payload);
    block.type = reader.counted_text();
    block.driver_text = reader.counted_text();
    if (!read_arguments(reader.counted_text(), block.arguments)) return false;
    block.before_operation = reader.counted_text();
    block.after_operation = reader.counted_text();
    block.create_operation = reader.counted_text();
    block.value = reader.number();
    reader.number();
    reader.number();
    return reader.whole();
}

void set_operations(DP *dp, const CreationBlock &block) {
    VELDAputenv(dp, ("VEDI_PREFILEOP=" + block.before_operation).c_str());
    VELDAputenv(dp, ("VEDI_POSTFILEOP=" + block.after_operation).c_str());
    VELDAputenv(dp, ("VEDI_CREATEFILE=" + block.create_operation).c_str());
}

int create(DP *dp, const std::string &name, CreationBlock &block, char *error_text) {
    block.arguments.push_back("TYPE=" + block.type);
    std::vector<const char *> words;
    for (const std::string &argument : block.arguments) words.push_back(argument.c_str());
    words.push_back("");
    return VediCreateFileRaw(dp, name.c_str(), block.driver_text.c_str(), error_text, static_cast<int>(block.value),
                             words.data(), ArgumentsEnd);
}

}  // namespace

Outcome apply_create_file(Replay &replay) {
    CreationBlock block;
    if (!read_creation_block(replay.record.payload, block)) return report_damage(replay);
    set_operations(replay.dp, block);
    const std::string name = replay.name();
    char error_text[VEDI_ERROR_TEXT_BYTES] = "";
    if (const int error = create(replay.dp, name, block, error_text))
        DupReport(replay.dp, replay.output(), replay.record.bytes, Severity::Error,
                  "CREATE-FILE of '%s' failed, error number %d\n    Error code '%s'", name.c_str(), error, error_text);
    else
        NTLogMessage(replay.dp, "Dup: CreateFile, chown");
    VediLoggerMisc(replay.dp, LoggerFreshView);
    return Outcome::Milestone;
}

}  // namespace velda::journal
