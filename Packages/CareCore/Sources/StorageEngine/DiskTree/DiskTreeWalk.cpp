#include "StorageEngine/DiskTree/DiskTreeWalk.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

#include "Base/Saturating.h"

namespace tidyro {

/// Gathers a folder's entries in a batch.
class DiskTreeWalk::Reader : public FolderWalk::Reader {
  public:
    Reader(DiskTreeWalk& tree, const std::atomic<bool>& cancelled)
        : tree_(tree),
          lister_({.isAskedForClones = tree.sharesBlocks_,
                   .cancelled = &cancelled,
                   .afterBulkRead = tree.afterBulkRead_}) {}

    void begin(Number folder) override {
        // A folder's own kind is what its entries inherit. None inherits `other`.
        const ContentKind kind = tree_.columns_.kind[folder];
        inherited_.context = kind == ContentKind::other ? std::nullopt : std::optional(kind);
        inherited_.isStartupDiskRoot = folder == 0 && tree_.rootURL_.path() == "/";
    }

    SystemError read(const FolderWalk::Visit& visit) override {
        batch_.clear();
        inherited_.mayDescend = visit.mayDescend;
        inherited_.places = visit.places;
        lister_.begin(visit.folder);
        while (const platform::FolderEntry* entry = lister_.next()) batch_.add(*entry, inherited_);
        if (lister_.error().code == 0) batch_.dateUnreadFolders(visit.folder);
        return lister_.error();
    }

    std::optional<FolderWalk::Handover>
    finish(Number folder, FolderWalk::Outcome outcome,
           const std::optional<platform::FolderFacts>& facts) override {
        using enum FolderWalk::Outcome;
        if (facts) {
            tree_.columns_.modified[folder] = facts->modified;
            tree_.columns_.accessed[folder] = facts->accessed;
        }
        const auto node = static_cast<NodeNumber>(folder);
        switch (outcome) {
        case unread: break;
        case vanished: tree_.vanished_.push_back(node); break;
        case mountPoint: tree_.columns_.flags[folder].insert(DiskTreeFlags::mountPoint); break;
        case closed:
            tree_.columns_.flags[folder].insert(DiskTreeFlags::denied);
            ++tree_.columns_.deniedCount;
            ++tree_.progress_.denied;
            break;
        case read:
            if (!tree_.hasRoomFor(batch_)) return std::nullopt;
            const auto first = static_cast<Number>(tree_.columns_.parent.size());
            tree_.append(batch_, node);
            return FolderWalk::Handover{.first = first, .descents = batch_.descents()};
        }
        return FolderWalk::Handover{};
    }

  private:
    DiskTreeWalk& tree_;
    platform::FolderLister lister_;
    DiskTreeBatch::Inherited inherited_;
    DiskTreeBatch batch_;
};

DiskTreeWalk::DiskTreeWalk(Options options)
    : rootURL_(std::move(options.rootURL)),
      afterBulkRead_(std::move(options.afterBulkRead)),
      startedAt_(Clock::now()),
      sharesBlocks_(platform::isKnownToShareBlocks(options.walk.root)),
      reports_(std::move(options.progressHandler), options.progressInterval),
      sharedFiles_(std::move(options.carryingLast)),
      walk_(std::move(options.walk), *this) {
    appendRoot();
}

std::expected<DiskTree, DiskTreeScanner::ScanError> DiskTreeWalk::run() {
    if (const auto read = walk_.run(); !read) {
        if (read.error().code == ECANCELED) return std::unexpected(CancellationError{});
        return std::unexpected(DiskTreeScanner::Unreadable{rootURL_, read.error()});
    }
    std::ranges::sort(vanished_);
    removeNodes(columns_, vanished_);
    totalSubtrees(columns_);
    columns_.rootURL = rootURL_;
    columns_.duration = elapsed();
    columns_.finishedAt = Timestamp::now();
    return DiskTree(std::move(columns_));
}

void DiskTreeWalk::appendRoot() {
    const auto context = contentKindContextOfPath(rootURL_.path());
    const std::string_view name = rootURL_.lastComponent();
    DiskTreeFlags flags(DiskTreeFlags::directory);
    if (isPackageFolder(name)) flags.insert(DiskTreeFlags::package);
    if (context == ContentKind::system) flags.insert(DiskTreeFlags::systemOwned);
    columns_.parent.push(-1);
    columns_.childStart.push(0);
    columns_.childCount.push(0);
    columns_.nameStart.push(0);
    columns_.nameLength.push(static_cast<std::uint16_t>(name.size()));
    columns_.nameBytes.append({name.data(), name.size()});
    columns_.logicalSize.push(0);
    columns_.allocatedSize.push(0);
    columns_.modified.push(0);
    columns_.accessed.push(0);
    columns_.kind.push(context.value_or(ContentKind::other));
    columns_.flags.push(flags);
}

std::unique_ptr<FolderWalk::Reader> DiskTreeWalk::makeReader(const std::atomic<bool>& cancelled) {
    return std::make_unique<Reader>(*this, cancelled);
}

DiskTreeWalk::Number DiskTreeWalk::parent(Number folder) const {
    return static_cast<Number>(columns_.parent[folder]);
}

std::string_view DiskTreeWalk::name(Number folder) const {
    return {columns_.nameBytes.data() + columns_.nameStart[folder], columns_.nameLength[folder]};
}

bool DiskTreeWalk::hasRoomFor(const DiskTreeBatch& batch) const {
    constexpr std::size_t maxNodes = std::numeric_limits<NodeNumber>::max();
    constexpr std::size_t maxNameBytes = std::numeric_limits<std::uint32_t>::max();
    return batch.count() <= maxNodes - columns_.parent.size() &&
           batch.nameByteCount() <= maxNameBytes - columns_.nameBytes.size();
}

void DiskTreeWalk::append(DiskTreeBatch& batch, NodeNumber folder) {
    progress_.items += batch.count();
    progress_.folders += batch.folders();
    progress_.logicalBytes = saturatingAdd(progress_.logicalBytes, batch.logicalTotal());
    progress_.allocatedBytes = saturatingAdd(progress_.allocatedBytes, batch.allocatedTotal());
    const auto node = static_cast<std::size_t>(folder);
    const auto first = static_cast<NodeNumber>(columns_.parent.size());
    columns_.childStart[node] = first;
    columns_.childCount[node] = static_cast<std::int32_t>(batch.count());
    batch.moveInto(columns_, folder);
    for (SharedFiles::Sharing sharing : batch.sharing()) {
        sharing.node += first;
        const SharedFiles::Change change = sharedFiles_.add(columns_, sharing);
        progress_.logicalBytes += static_cast<std::uint64_t>(change.logical);
        progress_.allocatedBytes += static_cast<std::uint64_t>(change.allocated);
    }
}

void DiskTreeWalk::report(std::unique_lock<std::mutex>& lock, Number folder) {
    reports_.report(lock, [&] {
        DiskTreeScanner::Progress progress = progress_;
        progress.currentPath = pathSoFar(folder);
        progress.elapsed = elapsed();
        return progress;
    });
}

std::string DiskTreeWalk::pathSoFar(Number folder) const {
    std::vector<std::string_view> names;
    for (; folder != 0; folder = parent(folder)) names.push_back(name(folder));
    std::string path = rootURL_.path();
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
        if (!path.ends_with('/')) path += '/';
        path += *name;
    }
    return path;
}

double DiskTreeWalk::elapsed() const {
    return std::chrono::duration<double>(Clock::now() - startedAt_).count();
}

} // namespace tidyro
