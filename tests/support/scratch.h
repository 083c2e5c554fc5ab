// scratch.h - scratch directories and scratch systems for tests; removed when the object dies.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace velda::test {

class ScratchDirectory {
  public:
    ScratchDirectory()
    {
        std::string name = (std::filesystem::temp_directory_path() / "velda-test-XXXXXX").string();
        if (!mkdtemp(name.data())) throw std::runtime_error("cannot make a scratch directory in " + name);
        path_ = name;
    }
    // A forked child that ends does not take the directory with it.
    ~ScratchDirectory()
    {
        if (getpid() != owner_) return;
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchDirectory(const ScratchDirectory &) = delete;
    ScratchDirectory &operator=(const ScratchDirectory &) = delete;

    const std::string &path() const { return path_; }
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }

  private:
    std::string path_;
    pid_t owner_ = getpid();
};

// A system of its own: global directory in a scratch directory, release directory in the source tree. Make it before
// the first runtime call of the process.
class ScratchSystem : public ScratchDirectory {
  public:
    ScratchSystem()
    {
        setenv("VELDAGLOBALDIR", path().c_str(), 1);
        setenv("VBCRELEASEDIR", VELDA_SOURCE_DIR "/share", 1);
    }
};

}  // namespace velda::test
