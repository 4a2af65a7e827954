#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Base/FileURL.h"
#include "Base/UUID.h"
#include "Platform/Files/ChangeGate.h"
#include "Platform/Folders/FolderChanges.h"
#include "Platform/Testing/FakeVolumes.h"

/// What a crash interrupts: three cleanups and a putting back in a small home. Old cache files go
/// to the Trash, some of them are put back, picked folders go to the Trash, and other cache files
/// are removed for good.
namespace tidyro::crash {

struct Places {
    std::string items; ///< the top of the volume with the home
    std::string data;  ///< the folder for the journal, the ledger and the person's own Trash
    int itemsOfFolder = 5;

    [[nodiscard]] std::string intents() const { return data + "/Harborline/intents"; }
    [[nodiscard]] FileURL ledgerKey() const {
        return FileURL::file(data + "/Harborline/Keys/recovery-ledger.key");
    }
    [[nodiscard]] FileURL ledger() const {
        return FileURL::file(data + "/Harborline/Recovery/ledger.json");
    }
    [[nodiscard]] FileURL trash() const { return FileURL::folder(data + "/Trash"); }
    /// The volumes that the places lie on, by names that every state has. One when nothing is
    /// mounted there.
    [[nodiscard]] platform::testing::FakeVolumes volumes() const;
};
/// Below the top of the first volume, and what the second one is mounted on when there are two.
inline constexpr const char* dataBelowItems = "home/.local/share";

enum class Cleanup : std::uint8_t { trashing, picking, removing };
inline constexpr std::array allCleanups{Cleanup::trashing, Cleanup::picking, Cleanup::removing};
/// Of its plan, by which its intent is known.
[[nodiscard]] UUID planOf(Cleanup cleanup);

struct Item {
    std::string name; ///< below the top, as its plan takes it
    std::string path;
    std::string contents; ///< that no other has; of the file in it, for a folder
    Cleanup cleanup;

    /// The file with its contents, when it lies at a path.
    [[nodiscard]] std::string fileAt(const std::string& at) const {
        return cleanup == Cleanup::picking ? at + "/inside" : at;
    }
};
/// So many of the first items are put back from the Trash.
inline constexpr std::size_t putBackCount = 3;

/// Each cleanup's in the order of its plan.
[[nodiscard]] std::vector<Item> itemsIn(const Places& places);
/// Whether items in a temporary folder can be planned. Where the system keeps its devices and what
/// it tells of itself, they never are; tests skip there.
[[nodiscard]] bool mayBePlanned(const std::string& folder);
/// Makes the items, on volumes that nobody interrupts.
void prepare(const Places& places);

/// What has been told to be on the disk for good.
struct Acknowledged {
    enum class What : std::uint8_t {
        begun,
        recorded,
        closed,
        putBackBegins,
        putBack,
        putBackRecorded
    };
    What what;
    Cleanup cleanup;
    std::size_t count = 0; ///< of the records or of what was put back, from the first one on
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
    /// None: those of the running system.
    platform::FolderChanges* changes = nullptr;
    platform::ChangeGate* gate = &platform::ChangeGate::open();
};

/// Runs all of it and tells what is acknowledged, in the moment that it is.
void carryOut(const Places& places, const Manner& manner,
              const std::function<void(const Acknowledged&)>& tell);

/// What the next start does after a crash: looks for each item that the journal does not account
/// for, and repairs what was left half done.
void settle(const Places& places, platform::FolderChanges& changes,
            platform::ChangeGate& gate = platform::ChangeGate::open());

} // namespace tidyro::crash
