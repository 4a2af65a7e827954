// The Finder alone knows where a volume's Trash is and how an item gets back from it, so its own
// call moves the item. It is reached through the runtime of Objective-C, which C++ may call.
#include "Platform/Folders/Trash.h"

#include <cerrno>
#include <utility>

#include <dlfcn.h>

#include "Base/PathText.h"

namespace tidyro::platform {

namespace {

using Object = void*;

/// The runtime and the framework, looked up when the first item is moved.
class ObjectiveC {
  public:
    [[nodiscard]] static const ObjectiveC& shared() {
        static const ObjectiveC found;
        return found;
    }
    [[nodiscard]] bool isThere() const {
        return getClass_ != nullptr && selector_ != nullptr && send_ != nullptr &&
               push_ != nullptr && pop_ != nullptr && framework_ != nullptr;
    }
    [[nodiscard]] Object classNamed(const char* name) const {
        return reinterpret_cast<Object (*)(const char*)>(getClass_)(name);
    }
    template <class Answer, class... Arguments>
    Answer send(Object to, const char* selector, Arguments... arguments) const {
        const Object named = reinterpret_cast<Object (*)(const char*)>(selector_)(selector);
        return reinterpret_cast<Answer (*)(Object, Object, Arguments...)>(send_)(to, named,
                                                                                 arguments...);
    }
    [[nodiscard]] Object pushPool() const { return reinterpret_cast<Object (*)()>(push_)(); }
    void popPool(Object pool) const { reinterpret_cast<void (*)(Object)>(pop_)(pool); }

  private:
    void* runtime_ = ::dlopen("/usr/lib/libobjc.A.dylib", RTLD_LAZY);
    void* framework_ =
        ::dlopen("/System/Library/Frameworks/Foundation.framework/Foundation", RTLD_LAZY);
    void* getClass_ = find("objc_getClass");
    void* selector_ = find("sel_registerName");
    void* send_ = find("objc_msgSend");
    void* push_ = find("objc_autoreleasePoolPush");
    void* pop_ = find("objc_autoreleasePoolPop");

    [[nodiscard]] void* find(const char* name) const {
        return runtime_ != nullptr ? ::dlsym(runtime_, name) : nullptr;
    }
};

/// Releases what the calls in its life made.
class AutoreleasePool {
  public:
    explicit AutoreleasePool(const ObjectiveC& objc) : objc_(objc), pool_(objc.pushPool()) {}
    ~AutoreleasePool() { objc_.popPool(pool_); }
    AutoreleasePool(const AutoreleasePool&) = delete;
    AutoreleasePool& operator=(const AutoreleasePool&) = delete;

  private:
    const ObjectiveC& objc_;
    Object pool_;
};

/// The numbers that Cocoa gives to failures of files.
TrashFailure failureOfCocoa(long code) {
    switch (code) {
    case 4:
    case 260: return TrashFailure::itemGone;
    case 255: return TrashFailure::itemLocked;
    case 257:
    case 513: return TrashFailure::notPermitted;
    case 640: return TrashFailure::full;
    case 642: return TrashFailure::volumeReadOnly;
    case 3328: return TrashFailure::trashUnusable; // the volume has none
    default: return TrashFailure::failed;
    }
}

/// Where the system put the item.
std::expected<std::string, TrashError> moveBySystem(const std::string& path) {
    const ObjectiveC& objc = ObjectiveC::shared();
    if (!objc.isThere()) return std::unexpected(TrashError{TrashFailure::failed, {ENOSYS}});
    const AutoreleasePool pool(objc);
    const Object manager = objc.send<Object>(objc.classNamed("NSFileManager"), "defaultManager");
    const Object text =
        objc.send<Object>(manager, "stringWithFileSystemRepresentation:length:", path.c_str(),
                          static_cast<unsigned long>(path.size()));
    const Object url = objc.send<Object>(objc.classNamed("NSURL"), "fileURLWithPath:", text);
    Object resulting = nullptr;
    Object error = nullptr;
    const bool isMoved =
        objc.send<signed char>(manager, "trashItemAtURL:resultingItemURL:error:", url, &resulting,
                               &error) != 0;
    if (!isMoved) {
        const long code = error != nullptr ? objc.send<long>(error, "code") : 0;
        return std::unexpected(TrashError{failureOfCocoa(code), {0}});
    }
    const char* moved = resulting != nullptr
                            ? objc.send<const char*>(resulting, "fileSystemRepresentation")
                            : nullptr;
    return moved != nullptr ? std::string(moved) : std::string();
}

std::unexpected<TrashError> trashFailure(TrashFailure kind, SystemError error = {0}) {
    return std::unexpected(TrashError{kind, error});
}

} // namespace

std::expected<TrashedItem, SystemError> TrashedItem::open(const FileURL& url) {
    std::string trash(path::parent(url.path()));
    auto folder = FolderDescriptor::openRoot(trash);
    if (!folder) return std::unexpected(folder.error());
    auto base = folder->open(".");
    if (!base) return std::unexpected(base.error());
    return TrashedItem{.folder = *std::move(folder),
                       .name = std::string(url.lastComponent()),
                       .notes = FolderDescriptor(),
                       .base = *std::move(base),
                       .basePath = std::move(trash)};
}

FolderChanges::Changed TrashedItem::forget(FolderChanges&, const std::string&) const { return {}; }

struct TrashSlot::Body {
    FolderChanges* changes;
    FolderFlushes* flushes;
    TrashItem item;
    std::string path = {}; ///< in the Trash
    std::string name = {};
    FolderDescriptor folder = {};
};

TrashSlot::TrashSlot(std::unique_ptr<Body> body) : body_(std::move(body)) {}
TrashSlot::TrashSlot(TrashSlot&& other) noexcept = default;
TrashSlot::~TrashSlot() = default;

std::expected<void, TrashError> TrashSlot::move() {
    // Before the move: what could not be noted would never be flushed.
    if (const auto noted = body_->flushes->note(body_->item.folder, FolderFlushes::Side::left);
        !noted) {
        return trashFailure(TrashFailure::failed, noted.error());
    }
    auto moved = moveBySystem(body_->item.path);
    if (!moved) return std::unexpected(moved.error());
    if (moved->empty()) return trashFailure(TrashFailure::noDestination);
    body_->path = *std::move(moved);
    body_->name = path::lastComponent(body_->path);
    auto folder = FolderDescriptor::openRoot(std::string(path::parent(body_->path)));
    if (folder) {
        body_->folder = *std::move(folder);
        // It lies on the volume that was noted, so only its own order among the flushes may suffer.
        static_cast<void>(body_->flushes->note(body_->folder, FolderFlushes::Side::entered));
    }
    return {};
}

std::expected<void, TrashError> TrashSlot::moveBack() {
    if (!body_->folder.isOpen()) return trashFailure(TrashFailure::notPermitted);
    const auto moved =
        moveNeverReplacing(*body_->changes, {.folder = body_->folder, .name = body_->name},
                           {.folder = body_->item.folder, .name = body_->item.name});
    if (moved) {
        // An item that is back is where it belongs, flushed or not.
        static_cast<void>(body_->flushes->note(body_->folder, FolderFlushes::Side::left));
        static_cast<void>(body_->flushes->note(body_->item.folder, FolderFlushes::Side::entered));
        return {};
    }
    return trashFailure(moved.error().kind == ChangeFailure::targetTaken ? TrashFailure::nameTaken
                                                                         : TrashFailure::failed,
                        moved.error().system);
}

FileURL TrashSlot::url() const {
    return body_->item.seen.kind == ItemKind::folder ? FileURL::folder(body_->path)
                                                     : FileURL::file(body_->path);
}
const FolderDescriptor& TrashSlot::folder() const { return body_->folder; }
const std::string& TrashSlot::name() const { return body_->name; }

struct Trash::Body {
    Options options;
    LiveFolderChanges liveChanges = {};
    std::optional<FolderFlushes> ownFlushes = std::nullopt;

    explicit Body(Options given) : options(std::move(given)) {
        if (options.changes == nullptr) options.changes = &liveChanges;
        if (options.flushes == nullptr) {
            options.flushes = &ownFlushes.emplace(*options.changes);
        }
    }
};

Trash::Trash(Options options) : body_(std::make_unique<Body>(std::move(options))) {}
Trash::~Trash() = default;

std::expected<TrashSlot, TrashError> Trash::reserve(const TrashItem& item) {
    if (const auto refused = trashRefusal(item)) return std::unexpected(*refused);
    return TrashSlot(std::make_unique<TrashSlot::Body>(TrashSlot::Body{
        .changes = body_->options.changes, .flushes = body_->options.flushes, .item = item}));
}

std::expected<void, SystemError> Trash::flush() { return body_->options.flushes->flush(); }

} // namespace tidyro::platform
