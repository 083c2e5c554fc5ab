// directory_driver.h - the whole-file operations of the driver "UD".
#pragma once

#include "runtime/store/driver.h"

namespace velda::store {

class DirectoryDriver : public Driver {
  public:
    std::string_view type() const override { return "UD"; }
    bool recognises(const std::string &path) override;
    Result<void> create(const std::string &path, const FileSettings &settings) override;
    Result<std::unique_ptr<OpenFile>> open(const std::string &path) override;
    Result<void> destroy(const std::string &path) override;
    Result<void> copy(const std::string &from, const std::string &to) override;
    Result<void> move(const std::string &from, const std::string &to) override;
    Result<std::uint64_t> check(const std::string &path, const CheckReport &report) override;
};

}  // namespace velda::store
