// Specifications of the journal's input and output, in a session with a journal, and the texts that they hold: times,
// files that stand for times, renames. Nothing outside is touched: a trial makes no file and no connection. Whatever is
// read keeps the rules that hold for every selection.
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>

#include "fuzz/silence.h"
#include "journal/journal.h"
#include "journal/select_parser.h"

namespace {

using namespace velda;
using namespace velda::journal;

void check(bool holds) {
    if (!holds) std::abort();
}

// What holds for every selection that was read.
void check_selection(const LogSelect &select, bool is_output) {
    check(select.deviceType != 0 && (select.deviceType & (select.deviceType - 1)) == 0);
    check(select.timeout >= 0 && select.retry >= 1 && select.blockMax >= 0);
    check(select.scheme >= 1 && select.scheme <= 13);
    if (select.deviceType & StreamDevices) check(select.blockSize >= 76 && select.blockSize <= 64 * 1024 * 1024);
    if (select.deviceType == Serial) check(!select.devices.empty());
    if (select.deviceType == Socket) check(!select.hostName.empty() && select.port > 1024);
    for (const RenamePair &pair : select.renames) check(!pair.from.empty() && !pair.to.empty());
    if (is_output)
        check(select.timeout == 0 && select.sendMilestone == 0);
    else
        check(select.renames.empty() && select.milestoneFile.empty() && !(select.flags & SelectEncrypt));
}

constexpr std::string_view Phrases[] = {
    "set",     "start",       "from",     "end",     "until",   "terminate", "device",  "type",
    "verbose", "blocksize",   "blockmax", "rename",  "notrans", "noflush",   "prompt",  "timeout",
    "retry",   "hostname",    "port",     "encrypt", "scheme",  "key",       "skiprec", "milestone",
    "=",       "=",           "=",        "=",       " ",       " ",         "\t",      "current",
    "eldest",  "auto",        "1",        "16",      "17",      "2000",      "65536",   "database",
    "null",    "serial",      "tty",      "stdin",   "stdout",  "logset",    "socket",  "eos",
    "eof",     "wait",        "waiteos",  "yes",     "no",      "true",      "x,y",     "checkpoint",
    "12:00",   "01-JAN-2020", ",",        "3des",    "aes_ctr", "localhost", "-1",      "99999999999"};

// Inputs of one kind are texts as they are, those of the other choose words that specifications know.
std::string specification_of(std::string_view bytes) {
    if (bytes.empty() || bytes[0] % 2 == 0) return std::string(bytes);
    std::string text;
    for (const char byte : bytes.substr(1)) text += Phrases[static_cast<unsigned char>(byte) % std::size(Phrases)];
    return text;
}

void work(DP *dp, const std::string &text) {
    VELDALoggerGetDefinition(dp);
    for (const bool is_output : {false, true}) {
        VAR fault;
        const std::unique_ptr<LogSelect> select(start_selection(dp, text.c_str(), is_output, &fault, true));
        check(select ? fault.empty() : fault.view().starts_with("Error: "));
        if (select) check_selection(*select, is_output);
    }
}

}  // namespace

// The names of files in the input would be names of this machine's files: slashes and dots are taken out of them.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const Silence silence;
    std::string text = specification_of({reinterpret_cast<const char *>(data), size});
    for (char &byte : text)
        if (byte == '/' || byte == '\\' || byte == '.') byte = '-';
    velda_run(
        velda_getdp(), "FUZZ", [](DP *dp, void *argument) { work(dp, *static_cast<std::string *>(argument)); }, &text);
    return 0;
}
