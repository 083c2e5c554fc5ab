#include "commands/record_list.h"

#include "frame/utility_frame.h"

namespace velda::commands {

RecordList::RecordList(DP *dp) : dp_(dp) {
    const bool had_active_list = VRunCountDefaultSel(dp) > 0;
    VAR operand;
    VBC_VELDAParseCommandLine2(dp, "VVVVVV", &file_, &name_, &dash_options_, &options_, &operand, &list_);
    is_whole_file_ = operand == "*" || (operand.empty() && !had_active_list);
}

bool RecordList::next(VAR &key) {
    while (VLibFREADNEXT_IBBBBB(dp_, &key, nullptr, nullptr, &list_, nullptr) == 1) {
        if (exists(key)) {
            ++found_;
            return true;
        }
        missing_.push_back(key.str());
    }
    return false;
}

// The keys of a whole file are there by themselves; named keys and those of a select list are looked up.
bool RecordList::exists(const VAR &key) const {
    if (is_whole_file_) return true;
    VAR record;
    return VLibFNEWREAD_IIBBBIB(dp_, 0, &file_, &record, &key, 0, nullptr) == 1;
}

void RecordList::report_missing() const {
    for (const std::string &key : missing_) crt_line("'" + key + "' record not found");
    if (!missing_.empty()) exit_command(2);
}

bool RecordList::has_option(char letter) const {
    return upcase(options_).view().find(letter) != std::string_view::npos;
}

}  // namespace velda::commands
