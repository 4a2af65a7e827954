#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Base/UUID.h"
#include "CareDomain/FileFingerprint.h"

/// What a crash interrupts: two cleanups and a putting back on small volumes. One cleanup moves
/// items to the Trash, then some of them are put back, and the other one removes items for good.
namespace tidyro::crash {

struct Places {
    std::string items; ///< the top of the volume with the items
    std::string data;  ///< a folder for the journal, the ledger and the person's own Trash

    [[nodiscard]] std::string intents() const { return data + "/Harborline/intents"; }
    [[nodiscard]] std::string ledger() const { return data + "/Harborline/Recovery/ledger.json"; }
};

struct Item {
    std::string name;
    std::string path;
    std::string contents; ///< that no other has; of the file in it, for a folder
    std::size_t cleanup;  ///< the one that it belongs to
    bool isFolder;

    /// The file with its contents, when it lies at a path.
    [[nodiscard]] std::string fileAt(const std::string& at) const {
        return isFolder ? at + "/inside" : at;
    }
};
inline constexpr std::size_t trashing = 0;
inline constexpr std::size_t removing = 1;
/// So many of the first items are put back from the Trash.
inline constexpr std::size_t putBackCount = 3;

[[nodiscard]] std::vector<Item> itemsIn(const Places& places);
/// Makes the items, on volumes that nobody interrupts.
void prepare(const Places& places);
[[nodiscard]] UUID intentOf(std::size_t cleanup);

/// What has been told to be on the disk for good.
struct Acknowledged {
    enum class What : std::uint8_t { begun, recorded, receipt, closed, putBackBegins, putBack };
    What what;
    std::size_t cleanup;
    std::size_t count = 0; ///< of the records, from the first one on

    bool operator==(const Acknowledged&) const = default;
};

/// Faults that the states have to show.
enum class Fault : std::uint8_t {
    none,
    volumesNotFlushed, ///< nothing that a cleanup moved is flushed before its records are
    logsNotFlushed,
};

struct Manner {
    bool isSlow = false; ///< the volume's folders are flushed one by one
    Fault fault = Fault::none;
};

/// Runs all of it and tells what is acknowledged, in the moment that it is.
void carryOut(const Places& places, const Manner& manner,
              const std::function<void(const Acknowledged&)>& tell);

/// What the next start does after a crash: looks for each item that the journal does not account
/// for, and repairs what was left half done.
void settle(const Places& places);

} // namespace tidyro::crash
