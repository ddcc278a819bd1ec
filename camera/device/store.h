// Keeps settings in files, one small binary file each.
#pragma once

#include <optional>
#include <string>

#include "camera/wire/bytes.h"

namespace lenswire::camera {

class Store {
  public:
    Store() = default;  // keeps nothing
    // Makes the folder. A reason in `error` when it cannot.
    static Store open(const std::string& folder, std::string* error);

    // The bytes under that name, if there are exactly so many.
    std::optional<Bytes> load(const std::string& name, size_t size) const;
    // Replaces them in one step; false when that failed.
    bool save(const std::string& name, const Bytes& bytes) const;

  private:
    std::string folder_;
};

}  // namespace lenswire::camera
