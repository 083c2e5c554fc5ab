#include "runtime/journal/record_batch.h"

#include "runtime/convert/convert.h"
#include "runtime/crypt/crypt.h"
#include "runtime/journal/session_texts.h"
#include "runtime/process/context.h"

namespace velda::journal {

RecordBatch::Buffers &RecordBatch::buffers() {
    static thread_local Buffers kept;
    return kept;
}

RecordBatch::RecordBatch(DP *dp, Configuration &configuration)
    : dp_(dp), configuration_(configuration), kept_(buffers()) {
    kept_.bytes.clear();
    kept_.ends.clear();
    kept_.records.clear();
    kept_.enciphered.clear();
}

Result<void> RecordBatch::begin(std::string_view file_name, std::string_view key) {
    begin_ = kept_.bytes.size();
    auto added = add_strings(kept_.bytes, dp_, *configuration_.record, file_name, key);
    strings_size_ = static_cast<std::uint32_t>(kept_.bytes.size() - begin_);
    return added;
}

void RecordBatch::add_number(std::uint32_t number) {
    char bytes[4];
    vputint32(bytes, static_cast<std::int32_t>(number));
    kept_.bytes.append(bytes, sizeof bytes);
}

void RecordBatch::add_long(std::int64_t number) {
    char bytes[8];
    vputlong64(bytes, number);
    kept_.bytes.append(bytes, sizeof bytes);
}

void RecordBatch::end(RecordType type, std::string_view data, std::uint8_t flags) {
    if (dp_->state<JournalSession>().in_transaction) flags |= InTransaction;
    kept_.records.push_back({type, flags, false, strings_size_, {}, data});
    kept_.ends.push_back(kept_.bytes.size());
}

Result<void> RecordBatch::end_write(std::string_view record) {
    const bool is_encrypted = configuration_.record->encryptedRecords != 0;
    if (is_encrypted) {
        auto text = crypt::encrypt(dp_->state<JournalSession>().keys, *crypt::scheme_by_number(VELDA_SCHEME_RC2),
                                   crypt::builtin_key(VELDA_KEY_JOURNAL_RECORD), record);
        if (!text) return text.error();
        record = kept_.enciphered.emplace_back(std::move(*text));
    }
    add_number(static_cast<std::uint32_t>(record.size()));
    end(RecordType::Write, record);
    kept_.records.back().is_encrypted = is_encrypted;
    return {};
}

Result<void> RecordBatch::append() {
    const std::string_view bytes = kept_.bytes;
    std::size_t begin = 0;
    for (std::size_t n = 0; n < kept_.records.size(); begin = kept_.ends[n++])
        kept_.records[n].body = bytes.substr(begin, kept_.ends[n] - begin);
    const bool is_under_way = dp_->state<JournalSession>().depth > 0;
    return append_records(dp_, configuration_, kept_.records, is_under_way ? Hold::Never : Hold::WhileSuspended);
}

}  // namespace velda::journal
