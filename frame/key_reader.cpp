// Reading of one key command: bytes from the type-ahead or the terminal, matched against the key table.
#include "frame/key_table.h"

using namespace velda;
using namespace velda::frame;

namespace {

// Codes that never stand in the table.
constexpr int NotACommand = 100;
constexpr int PrintableCharacter = 101;
constexpr int TimedOut = 102;
constexpr int Interrupted = 103;

// Waits between the bytes of one sequence, in tenths of a second.
constexpr int EscapeWait = 2;
constexpr int SequenceWait = 50;
constexpr int FirstPrintable = 32;

enum class KeyRead { Key, Timeout, Interrupt };

// One call of CommandNext: what has been read, and how.
class KeyReader {
  public:
    KeyReader(DP *dp, const KeyTable &table, VAR &Command, VAR &String)
        : dp_(dp), table_(table), Command_(Command), String_(String) {}

    void read_command(const VAR &UserTimeout) {
        Command_ = NotACommand;
        String_ = "";
        switch (read_key(to_int(UserTimeout))) {
            case KeyRead::Timeout:
                Command_ = TimedOut;
                return;
            case KeyRead::Interrupt:
                return;
            case KeyRead::Key:
                break;
        }
        if (key_ == Escape && numeric_code())
            read_escape_sequence();
        else
            read_sequence();
    }

  private:
    // Reads one byte behind String. With type-ahead the key is the first byte of all that was read, not the byte just
    // taken.
    KeyRead read_key(int timeout) {
        VAR &type_ahead = table_[KeyTypeAhead];
        if (!type_ahead.empty()) {
            String_ = cat(String_, type_ahead.substring(1, 1));
            key_ = seq(String_);
            type_ahead = type_ahead.substring(2, -1);
            return KeyRead::Key;
        }
        const int event = VELDAWindowsInchar(dp_, &Byte_, timeout);
        if (event > 0) {
            key_ = to_int(Byte_);
            String_ = cat(String_, chr(key_));
            return KeyRead::Key;
        }
        if (event == 0) return KeyRead::Timeout;
        Command_ = Interrupted;
        return KeyRead::Interrupt;
    }

    std::optional<VAR> numeric_code() const {
        auto code = table_.code_of(String_.view());
        return code && code->is_numeric() ? code : std::nullopt;
    }

    bool is_prefix() const {
        const auto code = table_.code_of(String_.view());
        return code && code->view() == PrefixCode;
    }

    // The key may be ESC alone, or the start of a sequence whose other bytes follow at once.
    void read_escape_sequence() {
        do {
            const KeyRead event = read_key(EscapeWait);
            if (event == KeyRead::Interrupt) return;
            if (event == KeyRead::Timeout) return take_escape_alone();
            if (const auto code = numeric_code()) {
                Command_ = *code;
                return;
            }
        } while (is_prefix());
        take_escape_alone();
    }

    // The bytes behind ESC are keys of their own: they go behind the type-ahead that is left.
    void take_escape_alone() {
        Command_ = EscapeCommand;
        table_[KeyTypeAhead] = cat(table_[KeyTypeAhead], String_.substring(2, -1));
        String_ = Escape;
    }

    // An incomplete sequence waits for ever.
    void read_sequence() {
        for (;;) {
            const auto code = table_.code_of(String_.view());
            if (!code) {
                Command_ = String_.size() == 1 && key_ >= FirstPrintable ? PrintableCharacter : NotACommand;
                return;
            }
            if (code->view() != PrefixCode) {
                Command_ = code->is_numeric() ? *code : VAR(NotACommand);
                return;
            }
            const KeyRead event = read_key(SequenceWait);
            if (event == KeyRead::Interrupt) return;
            if (event == KeyRead::Timeout) Command_ = NotACommand;
        }
    }

    DP *dp_;
    const KeyTable &table_;
    VAR &Command_;
    VAR &String_;
    VAR Byte_;
    int key_ = 0;
};

}  // namespace

VBC_SUBROUTINE(VELDACommandNext, Command, String, UserTimeout) {
    const UtilityCommon utility(dp);
    KeyReader(dp, KeyTable(utility), Command, String).read_command(UserTimeout);
}
