// file_turn.h - the locks on a hashed file itself, beside LMDB's own. The kernel drops each with its holder.
#pragma once

#include <string>

namespace velda::store {

// Whoever opens, relabels, removes or renames a file does it in turn. Held while it lives. The descriptor may be that
// of a directory too: then it is the turn to make, remove or rename files in it.
class FileTurn {
  public:
    explicit FileTurn(int descriptor);
    ~FileTurn();
    FileTurn(const FileTurn &) = delete;
    FileTurn &operator=(const FileTurn &) = delete;

  private:
    int descriptor_;
};

// Whoever changes the size of a lazy file, or maps it, does it in turn. Nothing is locked for descriptor -1.
class SizeTurn {
  public:
    explicit SizeTurn(int descriptor);
    ~SizeTurn();
    SizeTurn(const SizeTurn &) = delete;
    SizeTurn &operator=(const SizeTurn &) = delete;

  private:
    int descriptor_;
};

// Every process that has the file open holds a share of the user lock. True when no other process has: then a writer
// holds it alone, until share_user_lock. A descriptor that is not `writable` only looks.
bool take_user_lock(int descriptor, bool writable);
void share_user_lock(int descriptor);

}  // namespace velda::store
