#pragma once

#include <expected>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Base/Calendar.h"
#include "Base/FileURL.h"
#include "Base/Record.h"
#include "Base/SystemError.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "Platform/Files/ChangeGate.h"
#include "Platform/Files/FileLock.h"

namespace tidyro {

/// The commands of other programs that change a person's data, a file each: written before the
/// command starts and again when it has ended. What was interrupted is thereby known at the next
/// start. Whoever cannot write the record must not run the command.
///
///     auto command = log.begin({.id = platform::randomUUID(), .command = "uv cache prune",
///                               .executablePath = uv.url.path(), .startedAt = Timestamp::now()});
///     if (!command) return refused; // what cannot be written down does not run
///     const auto output = process.run(token);
///     command->finish(output ? "completed" : "failed");
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

    /// A command that runs. While this lives, no process takes the command for interrupted. When it
    /// goes without `finish`, the command is.
    class Running {
      public:
        /// Writes when and how the command ended. When that fails, the command will be told as
        /// interrupted: nobody else knows better.
        std::expected<void, SystemError>
        finish(std::string result, platform::ChangeGate& gate = platform::ChangeGate::open());

      private:
        friend ToolCommandLog;
        Running(FileURL directory, Record record, platform::FileLock lock)
            : directory_(std::move(directory)),
              record_(std::move(record)),
              lock_(std::move(lock)) {}

        FileURL directory_;
        Record record_;
        platform::FileLock lock_;
    };
    /// Writes the record of a command that is about to start.
    [[nodiscard]] std::expected<Running, SystemError>
    begin(Record record, platform::ChangeGate& gate = platform::ChangeGate::open()) const;

    /// Makes the folder when it is missing. When this returns, the record outlasts a crash. Whoever
    /// has told of an interrupted command writes it again with `finishedAt`, and it is not told
    /// again.
    [[nodiscard]] std::expected<void, SystemError>
    write(const Record& record, platform::ChangeGate& gate = platform::ChangeGate::open()) const;

    /// The records of commands that have not finished, the oldest first. Those that `begin` wrote
    /// and that still run, in this process or another, are not among them. Of a damaged file there
    /// is a record as well, with what can be read of it: a command counts as interrupted until the
    /// log says otherwise. Its id comes from the file's name, and its time from the file's date
    /// where the record's own is lost.
    [[nodiscard]] std::vector<Record> interrupted() const;

    /// What a person is told of an interrupted command, with its time in the calendar's zone.
    [[nodiscard]] static std::string interruptionText(const Record& record,
                                                      const Calendar& calendar);
};

} // namespace tidyro
