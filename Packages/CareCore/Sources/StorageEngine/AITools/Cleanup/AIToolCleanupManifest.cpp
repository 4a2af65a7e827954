#include "StorageEngine/AITools/Cleanup/AIToolCleanupManifest.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "Base/Fault.h"
#include "Base/JSONText.h"
#include "Base/RoomText.h"
#include "Base/Saturating.h"
#include "Base/UnicodeText.h"
#include "Platform/Machine/SHA256.h"

namespace tidyro {

namespace {

using enum AIToolCleanupError;

/// The very text of a manifest's JSON, piece by piece. All but the observation is the same for
/// most candidates of a rule, so that part of the text is kept for the next one.
template <class Take>
class CanonicalText {
  public:
    explicit CanonicalText(Take take) : take_(std::move(take)) {}

    void write(const AIToolCleanupManifest& manifest) {
        const AIToolCleanupManifest head{.id = manifest.id,
                                         .tool = manifest.tool,
                                         .layoutVersion = manifest.layoutVersion,
                                         .home = manifest.home,
                                         .createdAt = manifest.createdAt,
                                         .expiresAt = manifest.expiresAt,
                                         .operations = {}};
        append(withoutEnd(jsonTextOf(head), "]}"));
        std::string_view before;
        for (const AIToolCleanupManifest::Operation& operation : manifest.operations) {
            append(std::exchange(before, ","));
            const AIToolCleanupManifest::Operation none{
                .mode = operation.mode, .group = operation.group, .entries = {}, .candidates = {}};
            constexpr std::string_view between = "],\"candidates\":[";
            append(withoutEnd(jsonTextOf(none), std::string(between) + "]}"));
            writeList(operation.entries,
                      [this](const auto& entry) { appendJSONText(text_, entry); });
            append(between);
            writeList(operation.candidates, [this](const auto& each) { writeCandidate(each); });
            append("]}");
        }
        append("]}");
        take_(text_);
    }

  private:
    void append(std::string_view text) { text_ += text; }

    [[nodiscard]] static std::string withoutEnd(std::string text, std::string_view end) {
        require(text.ends_with(end), "the fields of a manifest have another order");
        text.resize(text.size() - end.size());
        return text;
    }

    template <class List, class Write>
    void writeList(const List& list, Write write) {
        constexpr std::size_t pieceBytes = 65'536;
        std::string_view before;
        for (const auto& each : list) {
            append(std::exchange(before, ","));
            write(each);
            if (text_.size() < pieceBytes) continue;
            take_(text_);
            text_.clear();
        }
    }

    void writeCandidate(const CleanupCandidate& candidate) {
        append("{\"observation\":");
        const std::size_t observation = text_.size();
        appendJSONText(text_, candidate.observation);
        const bool isAlike = last_ != nullptr && last_->category == candidate.category &&
                             last_->assessment == candidate.assessment &&
                             last_->authorization == candidate.authorization;
        if (!isAlike) {
            const std::size_t head = std::string_view("{\"observation\":").size();
            rest_ = jsonTextOf(candidate).substr(head + text_.size() - observation);
            last_ = &candidate;
        }
        append(rest_);
    }

    Take take_;
    std::string text_;
    const CleanupCandidate* last_ = nullptr;
    std::string rest_; ///< the text of `last_` behind its observation
};

} // namespace

std::string_view description(AIToolCleanupError error) {
    switch (error) {
    case nothingSelected: return "Nothing eligible is selected, so there is nothing to clean.";
    case approvalDoesNotMatch:
        return "The confirmation does not match the list on screen, so nothing was touched. Review "
               "the list and confirm again.";
    case manifestExpired:
        return "This list is more than ten minutes old, so nothing was touched. Audit again to get "
               "a current list.";
    case permanentRequiresDisposable:
        return "Only disposable caches can be removed permanently. Generated work can only be "
               "moved to the Trash.";
    case homeChanged:
        return "The tool's folder is no longer the one Tidyro audited, so nothing was touched. "
               "Audit again.";
    }
    fault("an error of a tool's cleanup that does not exist");
}

std::string_view cleanupModeText(CleanupExecutionMode mode) {
    switch (mode) {
    case CleanupExecutionMode::simulation: return "Test run. Nothing is changed.";
    case CleanupExecutionMode::recoverable:
        return "Move to the Trash. You can put them back until you empty the Trash, and the space "
               "is not freed until then.";
    case CleanupExecutionMode::permanent: break;
    }
    return "Remove permanently. There is no undo; the tool recreates what it needs.";
}

std::size_t AIToolCleanupManifest::itemCount() const {
    std::size_t count = 0;
    for (const Operation& operation : operations) count += operation.entries.size();
    return count;
}

std::uint64_t AIToolCleanupManifest::byteCount() const {
    std::uint64_t bytes = 0;
    for (const Operation& operation : operations) {
        for (const Entry& entry : operation.entries) bytes = saturatingAdd(bytes, entry.byteCount);
    }
    return bytes;
}

std::string AIToolCleanupManifest::digest() const {
    platform::SHA256 hash;
    CanonicalText text(
        [&](std::string_view piece) { hash.update(std::as_bytes(std::span(piece))); });
    text.write(*this);
    return platform::hexText(hash.finish());
}

std::vector<std::string> AIToolCleanupManifest::manifestLines(std::size_t limit,
                                                              const LocaleText& locale) const {
    std::vector<std::string> lines;
    lines.reserve(std::min(limit, itemCount()) + 1);
    std::uint64_t restCount = 0;
    std::uint64_t restBytes = 0;
    for (const Operation& operation : operations) {
        for (const Entry& entry : operation.entries) {
            if (lines.size() < limit) {
                lines.push_back(terminalSafe(entry.path()) + ", " +
                                RoomText::bytes(entry.byteCount, locale));
            } else {
                ++restCount;
                restBytes = saturatingAdd(restBytes, entry.byteCount);
            }
        }
    }
    if (restCount > 0) {
        lines.push_back("and " + RoomText::counted(restCount, "more item", "more items", locale) +
                        ", " + RoomText::bytes(restBytes, locale));
    }
    return lines;
}

AIToolCleanupApproval AIToolCleanupApproval::approve(const AIToolCleanupManifest& manifest,
                                                     Timestamp at) {
    return {.manifestID = manifest.id,
            .digest = manifest.digest(),
            .itemCount = static_cast<std::int64_t>(manifest.itemCount()),
            .byteCount = manifest.byteCount(),
            .approvedAt = at};
}

bool AIToolCleanupApproval::matches(const AIToolCleanupManifest& manifest) const {
    return manifestID == manifest.id && std::cmp_equal(itemCount, manifest.itemCount()) &&
           byteCount == manifest.byteCount() && digest == manifest.digest();
}

bool AIToolCleanupBatch::InOrderOfTools::operator()(const AIToolHome& a,
                                                    const AIToolHome& b) const {
    const auto values = [](const AIToolHome& home) {
        return std::tie(home.tool, home.url, home.deviceID, home.inode);
    };
    return values(a) < values(b);
}

std::size_t AIToolCleanupBatch::itemCount() const {
    std::size_t count = 0;
    for (const AIToolCleanupManifest& manifest : manifests) count += manifest.itemCount();
    return count;
}

std::uint64_t AIToolCleanupBatch::byteCount() const {
    std::uint64_t bytes = 0;
    for (const AIToolCleanupManifest& manifest : manifests) {
        bytes = saturatingAdd(bytes, manifest.byteCount());
    }
    return bytes;
}

Timestamp AIToolCleanupBatch::expiresAt() const {
    const auto earliest =
        std::ranges::min_element(manifests, {}, &AIToolCleanupManifest::expiresAt);
    return earliest != manifests.end() ? earliest->expiresAt : Timestamp();
}

} // namespace tidyro
