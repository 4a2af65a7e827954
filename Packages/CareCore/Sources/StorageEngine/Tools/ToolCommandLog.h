#pragma once

#include <expected>
#include <optional>
#include <string>
#include <vector>

#include "Base/FileURL.h"
#include "Base/Record.h"
#include "Base/SystemError.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "Platform/Files/ChangeGate.h"

namespace tidyro {

/// The commands of other programs that change a person's data, a file each: written before the
/// command starts and again when it has ended. What was interrupted is thereby known at the next
/// start. Whoever cannot write the record must not run the command.
///
/// Any thread may use it; one record is written by one thread at a time.
struct ToolCommandLog {
    FileURL directory;

    struct Record {
        UUID id;
        std::string command; ///< as the person saw it
        std::string executablePath;
        Timestamp startedAt;
        std::optional<Timestamp> finishedAt = std::nullopt;
        std::optional<std::string> result = std::nullopt;

        static constexpr auto fields() {
            return fieldList<Record>(field("id", &Record::id), field("command", &Record::command),
                                     field("executablePath", &Record::executablePath),
                                     field("startedAt", &Record::startedAt),
                                     field("finishedAt", &Record::finishedAt),
                                     field("result", &Record::result));
        }
        bool operator==(const Record&) const = default;
    };

    [[nodiscard]] static ToolCommandLog applicationDefault();

    /// Makes the folder when it is missing. When this returns, the record outlasts a crash.
    [[nodiscard]] std::expected<void, SystemError>
    write(const Record& record, platform::ChangeGate& gate = platform::ChangeGate::open()) const;

    /// The records of commands that have not finished, the oldest first. A command that still runs
    /// is among them. Of a damaged file there is a record as well, with what can be read of it: a
    /// command counts as interrupted until the log says otherwise. Its id comes from the file's
    /// name, and its time from the file's date where the record's own is lost.
    [[nodiscard]] std::vector<Record> interrupted() const;
};

} // namespace tidyro
