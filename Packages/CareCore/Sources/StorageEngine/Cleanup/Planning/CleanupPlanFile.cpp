#include "StorageEngine/Cleanup/Planning/CleanupPlanFile.h"

#include <cerrno>
#include <span>
#include <tuple>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "Base/JSONCoding.h"
#include "Base/JSONText.h"
#include "Base/StringTable.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Machine/SHA256.h"

namespace tidyro {

namespace {

using enum CleanupPlanFileError;

/// Writes JSON piece by piece: a plan of many items would take a multiple of its own memory as one
/// document. Each record of a list has a line of its own.
template <class Take>
class PieceWriter {
  public:
    explicit PieceWriter(Take take) : take_(std::move(take)) {}

    template <RecordType Record>
    void write(const Record& record) {
        std::string_view before = "{";
        std::apply(
            [&](const auto&... field) {
                (writeField(record.*(field.member), field.key, before), ...);
            },
            Record::fields());
        take_("}");
    }

  private:
    template <class Value>
    void writeField(const Value& value, std::string_view key, std::string_view& before) {
        if constexpr (requires { value.has_value(); }) {
            if (value) writeField(*value, key, before);
        } else {
            take_(fmt::format("{}\"{}\":", std::exchange(before, ","), key));
            if constexpr (requires { requires RecordType<typename Value::value_type>; }) {
                writeList(value);
            } else {
                take_(jsonTextOf(value));
            }
        }
    }
    template <class List>
    void writeList(const List& list) {
        std::string_view before = "[";
        for (const auto& record : list) {
            take_(fmt::format("{}\n{}", std::exchange(before, ","), jsonTextOf(record)));
        }
        take_(list.empty() ? "[]" : "\n]");
    }

    Take take_;
};

/// What the digest is made of: the end of the file.
template <class Take>
void writeBoth(const CleanupPlan& plan, const CleanupPlanSheet& sheet, const Take& take) {
    PieceWriter<const Take&> writer(take);
    take("\"plan\":");
    writer.write(plan);
    take(",\n\"sheet\":");
    writer.write(sheet);
    take("}\n");
}

std::string headWith(std::string_view digest) {
    return fmt::format("{{\"version\":{},\"digest\":\"{}\",\n", CleanupPlanFile::version, digest);
}

/// One entry of the sheet for each of the plan, in its order; no item twice.
bool belongTogether(const CleanupPlan& plan, const CleanupPlanSheet& sheet) {
    if (sheet.planID != plan.id || sheet.entries.size() != plan.entries.size()) return false;
    StringSet known;
    for (std::size_t i = 0; i < plan.entries.size(); ++i) {
        const LocalItemID& id = plan.entries[i].candidateID;
        if (sheet.entries[i].candidateID != id || !known.insert(id.rawValue).second) return false;
    }
    return true;
}

/// The head of a file, which is enough to tell whether the rest may be read.
struct PlanFileHead {
    std::uint32_t version;
    std::string digest;

    static constexpr auto fields() {
        return fieldList<PlanFileHead>(field("version", &PlanFileHead::version),
                                       field("digest", &PlanFileHead::digest));
    }
};

struct PlanFileBody {
    CleanupPlan plan;
    CleanupPlanSheet sheet;

    static constexpr auto fields() {
        return fieldList<PlanFileBody>(field("plan", &PlanFileBody::plan),
                                       field("sheet", &PlanFileBody::sheet));
    }
};

CleanupPlanFile::Result<std::pair<PlanFileHead, PlanFileBody>> decodedFile(std::string_view text) {
    const auto document = parseJSON(text);
    if (!document) return std::unexpected(damaged);
    auto head = fromJSON<PlanFileHead>(*document);
    if (!head) return std::unexpected(damaged);
    if (head->version != CleanupPlanFile::version) return std::unexpected(otherVersion);
    auto body = fromJSON<PlanFileBody>(*document);
    if (!body) return std::unexpected(damaged);
    return std::pair(*std::move(head), *std::move(body));
}

} // namespace

std::string_view description(CleanupPlanFileError error) {
    switch (error) {
    case unreadable: return "This plan could not be read from its file. Nothing was touched.";
    case unwritable: return "This plan could not be written to a file. Nothing was touched.";
    case tooLarge:
        return "This plan has more items than a file can hold. Nothing was touched. Plan fewer at "
               "a time.";
    case damaged:
        return "This file is damaged, or is no plan of Tidyro's. Nothing was touched. Make the "
               "plan again.";
    case otherVersion:
        return "Another version of Tidyro wrote this plan. Nothing was touched. Make the plan "
               "again.";
    case sheetOfAnotherPlan:
        return "The two parts of this plan do not speak of the same items. Nothing was touched. "
               "Make the plan again.";
    case changed: break;
    }
    return "This plan was changed after it was written. Nothing was touched. Make the plan again.";
}

std::string cleanupDigest(const CleanupPlan& plan, const CleanupPlanSheet& sheet) {
    platform::SHA256 hash;
    writeBoth(plan, sheet,
              [&](std::string_view piece) { hash.update(std::as_bytes(std::span(piece))); });
    return platform::hexText(hash.finish());
}

std::string CleanupPlanFile::text(const CleanupPlan& plan, const CleanupPlanSheet& sheet) {
    std::string text = headWith(cleanupDigest(plan, sheet));
    writeBoth(plan, sheet, [&](std::string_view piece) { text += piece; });
    return text;
}

CleanupPlanFile::Result<std::string>
CleanupPlanFile::write(const FileURL& url, const CleanupPlan& plan, const CleanupPlanSheet& sheet) {
    if (!belongTogether(plan, sheet)) return std::unexpected(sheetOfAnotherPlan);
    auto writer =
        platform::DurableWriter::open(url.path(), platform::DurableWriter::Sibling::unique);
    if (!writer) return std::unexpected(unwritable);
    std::size_t byteCount = 0;
    bool isWritten = true;
    const auto take = [&](std::string_view piece) {
        byteCount += piece.size();
        isWritten = isWritten && byteCount <= maxByteCount &&
                    writer->append(std::as_bytes(std::span(piece)));
    };
    std::string digest = cleanupDigest(plan, sheet);
    take(headWith(digest));
    writeBoth(plan, sheet, take);
    if (byteCount > maxByteCount) return std::unexpected(tooLarge);
    if (!isWritten || !writer->commit()) return std::unexpected(unwritable);
    return digest;
}

CleanupPlanFile::Result<CleanupPlanFile> CleanupPlanFile::read(const FileURL& url) {
    const auto text = platform::readWholeFile(url.path(), maxByteCount);
    if (!text) return std::unexpected(text.error().code == EFBIG ? tooLarge : unreadable);
    return fromText(*text);
}

CleanupPlanFile::Result<CleanupPlanFile> CleanupPlanFile::fromText(std::string_view text) {
    if (text.size() > maxByteCount) return std::unexpected(tooLarge);
    auto decoded = decodedFile(text);
    if (!decoded) return std::unexpected(decoded.error());
    auto& [head, body] = *decoded;
    if (!belongTogether(body.plan, body.sheet)) return std::unexpected(sheetOfAnotherPlan);
    // The very text: no key that nobody knows or that is there twice, and no value that reads like
    // another one.
    std::string_view rest = text;
    bool isOurs = true;
    const auto take = [&](std::string_view piece) {
        isOurs = isOurs && rest.starts_with(piece);
        if (isOurs) rest.remove_prefix(piece.size());
    };
    take(headWith(head.digest));
    writeBoth(body.plan, body.sheet, take);
    if (!isOurs || !rest.empty()) return std::unexpected(damaged);
    if (cleanupDigest(body.plan, body.sheet) != head.digest) return std::unexpected(changed);
    return CleanupPlanFile{.plan = std::move(body.plan),
                           .sheet = std::move(body.sheet),
                           .digest = std::move(head.digest)};
}

} // namespace tidyro
