#include "StorageEngine/Tools/ValidatedExecutable.h"

#include <cstdlib>

#include <unistd.h>

#include "Base/JSONCoding.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "StorageEngine/Tools/ToolExecutableLocator.h"
#include "StorageEngine/Tools/ToolRuns.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

using testing::process;
using testing::TemporaryFolder;

class ValidatedExecutables : public testing::ToolRuns {
  protected:
    /// A program that tells the version in the file "version".
    void makeProgram(const std::string& name, const std::string& version = "uv 1.22.333 (abc)\n") {
        place_.file("version", version);
        std::filesystem::copy_file(TIDYRO_ACTOR, place_ / name,
                                   std::filesystem::copy_options::overwrite_existing);
        place_.permissions(name, 0755);
    }
    [[nodiscard]] std::optional<ValidatedExecutable> validateUV(const std::string& name) const {
        return ToolExecutableLocator::validateUV(FileURL::file(place_ / name), true,
                                                 FileURL::folder(place_.path()));
    }

    const TemporaryFolder place_;
};

TEST_F(ValidatedExecutables, AreRecordedAndRunAsTheyWereChecked) {
    makeProgram("uv");
    place_.link("link", "uv");
    const auto uv = validateUV("link");
    ASSERT_TRUE(uv);
    EXPECT_EQ(uv->version, "1.22.333");
    EXPECT_EQ(uv->url.path(), *platform::realPath(place_ / "uv"));
    EXPECT_EQ(fromJSONText<ValidatedExecutable>(jsonText(toJSON(*uv))), *uv);

    // Another file takes its name between the check and the run: the first one runs.
    const auto opened = uv->open();
    ASSERT_TRUE(opened && uv->stillIdentified());
    std::filesystem::rename(place_ / "uv", place_ / "aside");
    std::filesystem::copy_file("/bin/false", place_ / "uv");
    BoundedProcess asked = process(uv->url.path(), {"--version"});
    asked.environment["HOME"] = place_.path();
    asked.program = opened;
    EXPECT_EQ(asked.run(), (BoundedProcess::Output{.standardOutput = "uv 1.22.333 (abc)\n"}));
    EXPECT_FALSE(uv->stillIdentified());
    EXPECT_EQ(uv->open(), nullptr);
}

TEST_F(ValidatedExecutables, AreNotRecognisedWhenChanged) {
    struct Change {
        const char* description;
        std::function<void()> make;
        bool isForOpenOnly = false;
    };
    const std::string uvPath = place_ / "uv";
    const std::vector<Change> changes{
        {"nothing there", [&] { std::filesystem::remove(uvPath); }},
        {"another file with the same contents and date",
         [&] {
             const auto date = std::filesystem::last_write_time(uvPath);
             makeProgram("other");
             std::filesystem::rename(place_ / "other", uvPath);
             std::filesystem::last_write_time(uvPath, date);
         }},
        {"another length", [&] { std::filesystem::resize_file(uvPath, 5'000); }},
        {"another date", [&] { place_.times("uv", 1'000'000'000, 1'000'000'000); }},
        {"a link to it",
         [&] {
             std::filesystem::rename(uvPath, place_ / "moved");
             place_.link("uv", "moved");
         }},
        {"others may write to it", [&] { place_.permissions("uv", 0775); }, true},
    };
    for (const Change& change : changes) {
        std::filesystem::remove(uvPath);
        makeProgram("uv");
        const auto uv = validateUV("uv");
        ASSERT_TRUE(uv && uv->stillIdentified() && uv->open()) << change.description;
        change.make();
        EXPECT_EQ(uv->stillIdentified(), change.isForOpenOnly) << change.description;
        EXPECT_EQ(uv->open(), nullptr) << change.description;
    }
}

TEST_F(ValidatedExecutables, AreRefusedByTheirFile) {
    const auto passes = [&](const std::string& path, bool allowTemporary = true) {
        return ValidatedExecutable::passesFileChecks(FileURL::file(path), allowTemporary)
            .has_value();
    };
    makeProgram("uv");
    EXPECT_TRUE(passes(place_ / "uv"));
    EXPECT_TRUE(passes("/bin/sh", false));
    EXPECT_FALSE(passes(place_ / "uv", false)); // tests lie in a temporary place
    EXPECT_FALSE(passes(place_ / "missing"));
    EXPECT_FALSE(passes(place_.path()));
    for (const unsigned mode : {0775U, 0757U, 0644U}) {
        place_.permissions("uv", mode);
        EXPECT_FALSE(passes(place_ / "uv")) << mode;
    }
    place_.folder("open/inside");
    makeProgram("open/inside/uv");
    EXPECT_TRUE(passes(place_ / "open/inside/uv"));
    place_.permissions("open", 0777);
    EXPECT_FALSE(passes(place_ / "open/inside/uv"));
    place_.permissions("open", 01777);
    EXPECT_TRUE(passes(place_ / "open/inside/uv"));
    if (::getuid() == 0) {
        ASSERT_EQ(::chown((place_ / "open/inside/uv").c_str(), 65'534, 65'534), 0);
        EXPECT_FALSE(passes(place_ / "open/inside/uv"));
    }
}

TEST_F(ValidatedExecutables, AreRefusedByTheirAnswer) {
    for (const char* answer : {"", "uv", "uv 1.2", "uv 1.2.", "uv 1.2.x", "uvx 1.2.3", "UV 1.2.3",
                               "uv 1..3", "1.2.3 uv", "uv v1.2.3", "uv\n1.2.3"}) {
        makeProgram("uv", answer);
        EXPECT_EQ(validateUV("uv"), std::nullopt) << answer;
    }
    for (const char* answer : {"uv 1.2.3", "uv 1.2.3\n", "  uv   1.2.3 \xFF more words"}) {
        makeProgram("uv", answer);
        const auto uv = validateUV("uv");
        ASSERT_TRUE(uv) << answer;
        EXPECT_EQ(uv->version, "1.2.3");
    }
    place_.file("script", "#!/bin/sh\necho uv 1.2.3\n");
    place_.permissions("script", 0755);
    EXPECT_EQ(validateUV("script"), std::nullopt);
}

TEST_F(ValidatedExecutables, AreAskedInAFolderThatGoes) {
    place_.folder("scratch");
    const auto validate = [&](const std::string& script) {
        place_.file("tool", "#!/bin/sh\n" + script);
        place_.permissions("tool", 0755);
        const bool isValid =
            ValidatedExecutable::validated(
                FileURL::file(place_ / "tool"),
                {.environment = BoundedProcess::defaultEnvironment(FileURL::folder("/")),
                 .allowTemporaryLocation = true,
                 .version = [](std::string_view output) -> std::optional<std::string> {
                     if (output.empty()) return std::nullopt;
                     return std::string(output);
                 },
                 .versionTimeout = 0.3,
                 .terminationGrace = 0.1,
                 .scratchRoot = FileURL::folder(place_ / "scratch")})
                .has_value();
        EXPECT_TRUE(std::filesystem::is_empty(place_ / "scratch")) << script;
        return isValid;
    };
    EXPECT_TRUE(validate("pwd; mkdir -p a/b; touch a/b/c; ln -s / a/root; chmod 0 a"));
    EXPECT_FALSE(validate("exit 0"));
    EXPECT_FALSE(validate("echo 1; exit 1"));
    EXPECT_FALSE(validate("echo 1; sleep 100"));
    EXPECT_FALSE(validate("echo 1; touch -d 2001-01-01 \"$0\"")); // changes itself
    EXPECT_FALSE(validate("echo 1; chmod 777 ."
                          "; rm -rf ../tool; kill -TERM $$"));
    std::filesystem::remove(place_ / "scratch");
    place_.file("scratch", "no folder");
    EXPECT_EQ(ScratchFolder::make("check", FileURL::folder(place_ / "scratch")), std::nullopt);
}

TEST_F(ValidatedExecutables, AreAskedInTheDefaultEnvironmentWhenNoneIsGiven) {
    place_.file("tool", "#!/bin/sh\necho $HOME $PATH $NO_COLOR $LANG");
    place_.permissions("tool", 0755);
    const auto version = [](std::string_view output) { return std::optional(std::string(output)); };
    const auto tool =
        ValidatedExecutable::validate(FileURL::file(place_ / "tool"), std::nullopt, true, version);
    ASSERT_TRUE(tool);
    EXPECT_EQ(tool->version, platform::homeFolder().path() + " /usr/bin:/bin 1 en_US.UTF-8\n");
}

TEST_F(ValidatedExecutables, LeaveNoFolderThatTheirAnswerHasClosed) {
    place_.folder("scratch");
    place_.permissions("scratch", 0777);
    place_.permissions("", 0755);
    EXPECT_EQ(testing::asOrdinaryUser([&] {
                  auto scratch = ScratchFolder::make("check", FileURL::folder(place_ / "scratch"));
                  if (!scratch) return "not made";
                  BoundedProcess asked = testing::shell("mkdir a; touch a/b; chmod 0 a .");
                  asked.currentDirectory = scratch->url();
                  if (!asked.run()) return "not run";
                  scratch->remove();
                  return std::filesystem::is_empty(place_ / "scratch") ? "gone" : "left";
              }),
              "gone");
}

/// As the header of bounded runs shows it.
std::optional<BoundedProcess::Output>
askForVersion(const FileURL& home, const ScratchFolder& scratch, const CancelToken& token) {
    const auto uv = ToolExecutableLocator::findUV(home);
    const auto program = uv ? uv->open() : nullptr; // none: it is not what was checked
    if (program == nullptr) return std::nullopt;
    const BoundedProcess version{.executable = uv->url,
                                 .arguments = {"--version"},
                                 .environment = BoundedProcess::defaultEnvironment(home),
                                 .currentDirectory = scratch.url(),
                                 .timeout = 5,
                                 .outputLimit = 4'096,
                                 .terminationGrace = 5,
                                 .program = program};
    return version.run(token);
}

TEST_F(ValidatedExecutables, AreFoundBelowTheHome) {
    // Nothing in a temporary place is ever taken for an installed program; the machine may have
    // one.
    place_.folder(".local/bin");
    makeProgram(".local/bin/uv", "uv 99.99.99\n");
    const auto scratch = ScratchFolder::make("test", FileURL::folder(place_.path()));
    ASSERT_TRUE(scratch);
    const auto output = askForVersion(FileURL::folder(place_.path()), *scratch, {});
    EXPECT_NE(output ? output->standardOutput : "", "uv 99.99.99\n");
}

} // namespace
} // namespace tidyro
