// Events that another command than the recorder notes in the ledger of a camera's recordings, while a
// recorder may be at work in it.
//
// The command's own work comes first: nothing here throws, and a ledger that is busy is waited for a second
// at most, each time something is written.
#pragma once

#include <optional>
#include <string>

#include "recorder/archive/ledger.h"
#include "recorder/archive/names.h"

namespace lenswire::recorder {

class SideNotes {
  public:
    // A file that is not there, or is no ledger, stays as it is, and nothing is noted.
    explicit SideNotes(const std::string& file);

    // Collects an event of now. It belongs to the stream that the ledger has of the camera. When it has none,
    // since the recorder calls it otherwise, the text says which camera is meant.
    void event(const StreamIdentity& camera, const std::string& kind, const std::string& text);
    // Writes what was collected. What a recorder at work does not let in stays for the next time.
    void write();

    // Why not all is in the ledger; empty when all is, or when there is none.
    std::string trouble() const { return lost_.empty() ? trouble_ : lost_; }

  private:
    std::string stream_of(StreamIdentity camera);

    const std::string file_;
    std::optional<Ledger> ledger_;
    std::string lost_;     // why an event could not be collected
    std::string trouble_;  // why what was collected is not written
};

}  // namespace lenswire::recorder
