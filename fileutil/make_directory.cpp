// Making of a directory that becomes a file of the system.
#include <cerrno>
#include <memory>

#include "fileutil/fileutil.h"

using namespace velda;

namespace {

constexpr int PermissionBits = 0777;
constexpr int OptionCommand = 21;
constexpr std::string_view UnloggedOptions = "-L\xFE-T";

constexpr int Made = 0;
constexpr int NoMemory = -1;
constexpr int NotOpened = -2;
constexpr int OptionsRefused = -3;
constexpr int NotClosed = -4;

// The process mask is off for as long as this lives.
class ClearedMask {
  public:
    ClearedMask() : before_(VediWin32umask(0)) {}
    ~ClearedMask() { VediWin32umask(before_); }
    ClearedMask(const ClearedMask &) = delete;
    ClearedMask &operator=(const ClearedMask &) = delete;

    int before() const { return before_; }

  private:
    int before_;
};

// A directory that is there already gets the mode, where it is this user's own.
bool make(const char *path, int mode) {
    const ClearedMask mask;
    const int bits = (mode < 1 ? ~mask.before() : mode) & PermissionBits;
    if (VediWin32mkdir(path, bits) == 0) return true;
    if (errno != EEXIST) return false;
    VediWin32chmod(path, bits);
    return true;
}

struct FreeBlock {
    DP *dp;
    void operator()(VediControlBlock *block) const { VELDAfree(dp, block, "make_directory", __LINE__); }
};

// Makes the directory a file of the system whose changes are not journalled.
int set_unlogged(DP *dp, const char *path) {
    void *const memory = VELDAcalloc(dp, 1, sizeof(VediControlBlock), "make_directory", __LINE__);
    const std::unique_ptr<VediControlBlock, FreeBlock> block(static_cast<VediControlBlock *>(memory), FreeBlock{dp});
    if (!block) return NoMemory;
    if (VediOpen(dp, block.get(), path, 0, 0) != 0) return NotOpened;
    block->flags |= VEDI_FILE_NOT_JOURNALLED;
    const int refused = VediIOCTL(dp, block.get(), OptionCommand, UnloggedOptions.data(),
                                  static_cast<std::uint32_t>(UnloggedOptions.size()), nullptr, 0);
    const int unclosed = VediClose(dp, block.get(), 0);
    return refused ? OptionsRefused : unclosed ? NotClosed : Made;
}

}  // namespace

int VELDAMakeDirectory(DP *dp, const char *path, const char *, const char *, int mode, int logged) {
    if (!make(path, mode)) return NotOpened;
    if (!logged) return set_unlogged(dp, path);
    // A system without journal has nobody to tell; the directory is there all the same.
    VediLoggerMisc(dp, VELDA_LOGGER_MAKE_DIRECTORY, path);
    return Made;
}
