#pragma once

#include "platform/files.h"

namespace halqvantor::testing {

// A file system that forwards to the one installed before it and is installed while it lives: a test
// derives from it and overrides the calls it wants to fail.
class InstalledFileSystem : public platform::FileSystemWrapper {
 public:
  InstalledFileSystem()
      : FileSystemWrapper(&platform::CurrentFileSystem()), previous_(platform::InstallFileSystem(this)) {}
  ~InstalledFileSystem() override {
    platform::InstallFileSystem(previous_ == platform::FileSystem::Default() ? nullptr : previous_);
  }
  InstalledFileSystem(const InstalledFileSystem&) = delete;
  InstalledFileSystem& operator=(const InstalledFileSystem&) = delete;

 private:
  platform::FileSystem* previous_;
};

}  // namespace halqvantor::testing
