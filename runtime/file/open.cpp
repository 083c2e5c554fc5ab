// open.cpp - OPEN, CLOSE, CLEARFILE, and what an open file's cell tells of it.
#include <cerrno>

#include "runtime/file/statement.h"
#include "runtime/transaction/session_file.h"
#include "runtime/value/value.h"

namespace velda::file {
namespace {

void destroy_file_handle(Handle *handle) {
    auto *const block = reinterpret_cast<VediControlBlock *>(handle);
    store::destroy_control_block(*block);
    delete block;
}

std::string_view file_handle_text(const Handle *) { return {}; }

constexpr HandleOperations FileHandleOperations = {destroy_file_handle, file_handle_text};

// The cell takes over the block.
void store_block(DP *dp, VAR &cell, VediControlBlock *block) {
    if (cell.form & VELDA_MASK_RELEASE) VLibBStoreFreeVar_VB(dp, &cell);
    cell.form = VELDA_FORM_FILE;
    cell.formExtra = 0;
    cell.text = reinterpret_cast<char *>(block);
    cell.length = 0;
}

bool equals_ignoring_case(std::string_view text, std::string_view upper) {
    if (text.size() != upper.size()) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char byte = text[i] >= 'a' && text[i] <= 'z' ? static_cast<char>(text[i] - 'a' + 'A') : text[i];
        if (byte != upper[i]) return false;
    }
    return true;
}

// Whether the dictionary is meant, by the selector of OPEN.
Result<bool> selects_dictionary(const VAR *selector) {
    const std::string_view word = text_of(selector);
    if (word.empty() || word == "0" || equals_ignoring_case(word, "DATA")) return false;
    if (equals_ignoring_case(word, "DICT")) return true;
    return Error{EINVAL, "'" + shown_in_message(word) + "' is neither DICT nor DATA"};
}

Result<VediControlBlock *> open_block(const VAR *selector, std::string_view name) {
    const auto dictionary = selects_dictionary(selector);
    if (!dictionary) return dictionary.error();
    const auto parsed = store::parse_file_name(name, *dictionary);
    if (!parsed) return parsed.error();
    auto opened = store::open_file(parsed->path);
    if (!opened) return opened.error();
    auto *const block = new VediControlBlock;
    store::construct_control_block(*block, std::move(*opened), std::string(name));
    store::handle_of(*block).operations = &FileHandleOperations;
    return block;
}

}  // namespace
}  // namespace velda::file

using namespace velda::file;

int VLibFNEWOPEN_IIBBBB(DP *dp, int flags, const VAR *dictionary, const VAR *name, VAR *target, VAR *setting) {
    velda::transaction::before_open(dp);
    auto block = open_block(dictionary, text_of(name));
    if (!block) return take_else_path({dp, flags, setting}, block.error().number);
    store_block(dp, target ? *target : dp->state<FileState>().default_file, *block);
    return Done;
}

int VLibFOPEN_IBBBB(DP *dp, const VAR *dictionary, const VAR *name, VAR *target, VAR *setting) {
    return VLibFNEWOPEN_IIBBBB(dp, 0, dictionary, name, target, setting);
}

int VLibFCLOSE_IB(DP *dp, VAR *file) {
    VAR &cell = file ? *file : dp->state<FileState>().default_file;
    if (!cell.is_file()) return ElsePath;
    cell = "";
    return Done;
}

int VLibFNEWCLEARFILE_IIBB(DP *dp, int flags, const VAR *file, VAR *setting) {
    const Statement statement{dp, flags, setting};
    auto *const content = content_of_cell(dp, file);
    if (!content) return fail(statement, Action::Clear, "", "", not_open_error());
    const auto cleared = velda::transaction::clear_file(dp, *content);
    if (!cleared) return fail(statement, Action::Clear, content->file->path(), "", cleared.error());
    return Done;
}

VAR *VLibReturnDefaultFile(DP *dp) { return &dp->state<FileState>().default_file; }

int VELDAGetFilenameFromVar(DP *dp, const VAR *file, VAR *name) {
    const auto *const content = file ? content_of_cell(dp, file) : nullptr;
    if (!content) return 0;
    // The file stays open while its name is stored, should `name` be the very cell that holds it.
    const std::shared_ptr<velda::store::OpenFile> opened = content->file;
    *name = opened->path();
    return 1;
}

int VELDACatalogSetFileNotLogged(DP *dp, const VAR *file) {
    VediControlBlock *const block = file ? block_of(dp, file) : nullptr;
    if (!block) return 0;
    block->flags |= VEDI_FILE_NOT_JOURNALLED;
    return 1;
}

int CheckIndex(DP *dp, const VAR *file) {
    const VediControlBlock *const block = file ? block_of(dp, file) : nullptr;
    return block && (block->flags & VEDI_FILE_INDEXED) ? 1 : 0;
}

int VELDATestQFlag(DP *dp, const VAR *file, int ignore) {
    constexpr std::uint32_t QFlag = 0x40;
    const VediControlBlock *const block = file && ignore == 0 ? block_of(dp, file) : nullptr;
    return block && (block->flags2 & QFlag) ? 1 : 0;
}
