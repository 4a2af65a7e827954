#include "Rooms/Duplicates/Report/DuplicatesText.h"

#include <fmt/format.h>

#include "Base/FileURL.h"
#include "Base/JSONCoding.h"
#include "Base/LocaleText.h"
#include "Base/RoomText.h"
#include "Base/Saturating.h"

namespace tidyro {

namespace {

struct Sums {
    std::uint64_t extraCopies = 0;
    std::uint64_t freedBytes = 0; ///< by removing all extra copies
    std::uint64_t heldCopies = 0;
};

PathSet extraPaths(const DuplicateGroup& group, const DuplicatesModel& model) {
    PathSet paths;
    for (const DuplicateCopy* copy : model.extras(group)) paths.insert(copy->path);
    return paths;
}

Sums sumsOf(const DuplicateReport& report, const DuplicatesModel& model) {
    Sums sums;
    for (const DuplicateGroup& group : report.groups) {
        const PathSet extra = extraPaths(group, model);
        sums.extraCopies += extra.size();
        sums.freedBytes = saturatingAdd(sums.freedBytes, model.freedBytes(group, extra));
        for (const CopyState& state : model.states(group, {})) {
            if (std::holds_alternative<copystate::Held>(state.value)) ++sums.heldCopies;
        }
    }
    return sums;
}

struct StateWord {
    std::string operator()(const copystate::Held&) const { return "held"; }
    std::string operator()(const copystate::Kept&) const { return "kept"; }
    std::string operator()(const copystate::Staged&) const { return "staged"; }
    std::string operator()(const copystate::Gone&) const { return "gone"; }
    std::string operator()(const copystate::SharesStorage&) const { return "shares storage"; }
    std::string operator()(const copystate::Extra&) const { return "extra"; }
};

std::uint64_t asUnsigned(std::int64_t number) { return static_cast<std::uint64_t>(number); }

} // namespace

std::string filesLookedAtText(const DuplicateReport& report) {
    return fmt::format("Looked at {} of {} or more{}.",
                       RoomText::counted(asUnsigned(report.filesLookedAt), "file", "files"),
                       RoomText::bytes(report.minimumBytes),
                       report.includedSystemVolumes ? ", system volumes included" : "");
}

std::string copiesFoundText(const DuplicateReport& report) {
    return fmt::format("{} of copies, {} taken by the extra copies, in {} s.",
                       RoomText::counted(report.groups.size(), "set", "sets"),
                       RoomText::bytes(report.wastedBytes()),
                       LocaleText::current().decimal(report.duration, 2));
}

void writeText(const DuplicateReport& report, const DuplicatesModel& model,
               const std::function<std::string(const std::string&)>& shown,
               const std::function<void(std::string_view)>& write) {
    write(filesLookedAtText(report) + "\n");
    if (report.deniedFolders > 0) {
        write(fmt::format(
            "{} closed to Tidyro and not searched.\n",
            RoomText::counted(asUnsigned(report.deniedFolders), "folder was", "folders were")));
    }
    if (const auto unread = report.unreadFiles.value_or(0); unread > 0) {
        write(fmt::format("{} not be opened and {} not compared.\n",
                          RoomText::counted(asUnsigned(unread), "file could", "files could"),
                          unread == 1 ? "was" : "were"));
    }
    for (const DuplicateGroup& group : report.groups) {
        write(fmt::format("\n{} × {}, {} wasted  {}\n", RoomText::bytes(group.bytesEach),
                          group.copies.size(), RoomText::bytes(group.wastedBytes()), group.digest));
        const auto states = model.states(group, {});
        for (std::size_t i = 0; i < group.copies.size(); ++i) {
            const DuplicateCopy& copy = group.copies[i];
            write(fmt::format("  {:<14}  {}\n", std::visit(StateWord{}, states[i].value),
                              shown(copy.path)));
            for (const std::string& name : copy.otherNames) {
                write(fmt::format("  {:<14}  {}\n", "  also named", shown(name)));
            }
            const auto* held = std::get_if<copystate::Held>(&states[i].value);
            // The kept copy may have to stay anyway, and that is worth to know as well.
            const std::string reason =
                held != nullptr ? held->reason : copy.heldBecause.value_or(std::string());
            if (!reason.empty()) write(fmt::format("  {:<14}  {}\n", "", reason));
        }
    }
    const Sums sums = sumsOf(report, model);
    write(fmt::format("\n{}\n", copiesFoundText(report)));
    write(fmt::format("{} may go, which frees at least {}; {} held.\n",
                      RoomText::counted(sums.extraCopies, "copy", "copies"),
                      RoomText::bytes(sums.freedBytes),
                      RoomText::counted(sums.heldCopies, "copy is", "copies are")));
    if (report.cloneOnlyGroups > 0) {
        write(fmt::format("{} all their storage, so that removing any would free nothing.\n",
                          RoomText::counted(asUnsigned(report.cloneOnlyGroups),
                                            "further set of copies shares",
                                            "further sets of copies share")));
    }
    if (report.hardLinkedFiles > 0) {
        write(fmt::format(
            "{} a further name of a file and counted once.\n",
            RoomText::counted(asUnsigned(report.hardLinkedFiles), "path is", "paths are each")));
    }
}

JSON documentOf(const DuplicateReport& report, const DuplicatesModel& model) {
    JSON document = toJSON(report);
    JSON& groups = document["groups"];
    for (std::size_t g = 0; g < report.groups.size(); ++g) {
        const DuplicateGroup& group = report.groups[g];
        groups[g]["storageCount"] = group.storageCount();
        groups[g]["wastedBytes"] = group.wastedBytes();
        const auto states = model.states(group, {});
        for (std::size_t c = 0; c < group.copies.size(); ++c) {
            JSON& copy = groups[g]["copies"][c];
            copy["url"] = toJSON(FileURL::file(group.copies[c].path));
            copy["otherURLs"] = JSON::array();
            for (const std::string& name : group.copies[c].otherNames) {
                copy["otherURLs"].push_back(toJSON(FileURL::file(name)));
            }
            copy["state"] = toJSON(states[c]);
        }
    }
    const Sums sums = sumsOf(report, model);
    document["wastedBytes"] = report.wastedBytes();
    document["extraCopies"] = sums.extraCopies;
    document["freedBytes"] = sums.freedBytes;
    document["heldCopies"] = sums.heldCopies;
    return document;
}

} // namespace tidyro
