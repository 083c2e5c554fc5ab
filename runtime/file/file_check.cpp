// file_check.cpp - CHECK-FILE: the walk over a whole file that finds its damage.
#include "runtime/file/statement.h"
#include "runtime/value/value.h"

namespace velda::file {
namespace {

Result<std::uint64_t> check_named(std::string_view name, VAR &findings) {
    const auto parsed = store::parse_file_name(name, false);
    if (!parsed) return parsed.error();
    return store::check_file(parsed->path, [&](std::string_view finding) { findings.append(VAR(finding)); });
}

}  // namespace
}  // namespace velda::file

int velda_check_file(DP *dp, const VAR *name, VAR *records, VAR *findings, VAR *message) {
    findings->clear();
    const auto checked = velda::file::check_named(name->view(), *findings);
    if (checked) {
        *records = *checked;
        return velda::file::Done;
    }
    if (message)
        *message =
            VAR("FILE_CHECK\xFD" + velda::file::shown_in_message(name->view()) + "\xFD" + checked.error().message);
    return velda::file::take_else_path({dp, 0, nullptr}, checked.error().number);
}
