#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Platform/Folders/FolderReading.h"
#include "StorageEngine/AITools/AIToolLayout.h"

namespace tidyro {

/// The last look at a disposable file before it stands in a manifest. The tables say where a tool
/// keeps what it can make again; should a table be wrong, the names and the contents of the files
/// themselves still tell of conversations and credentials.
struct AIToolVeto {
    enum class Reason : std::uint8_t {
        tellingName,     ///< a component has a word for conversations or credentials
        tellingContents, ///< a database, or a document with the keys of conversations
        unreadable,      ///< nobody can say what is in it
    };

    /// Bytes of a file that are looked at.
    static constexpr std::size_t bytesLookedAt = 65'536;

    /// Whether one of the words of a component, in any case, composition and width, names
    /// conversations or credentials, also as a part of a longer one ("sessionid", "oauth"). Words
    /// end between a letter and what is none, and where a capital follows a small letter.
    [[nodiscard]] static bool hasTellingWord(std::string_view component);
    /// Whether a file's beginning is a database, one compressed stream, a private key or a list of
    /// settings with credentials, or has the keys that documents of conversations and credentials
    /// have. It may be cut off anywhere, and be of one, two or four bytes a character.
    [[nodiscard]] static bool hasTellingContents(std::string_view beginning);
    /// The same for a file that a rule recognised. Where the rule says that such keys are usual, it
    /// takes somebody's words or a secret behind them.
    [[nodiscard]] static bool hasTellingContentsDespite(const AIToolRecognizer& rule,
                                                        std::string_view beginning);

    /// Why the file may not go by the rule; none when nothing speaks against it. `componentsBelow`
    /// leads from the rule's root to the file, which is `name` in the open folder. No link is
    /// followed.
    [[nodiscard]] static std::optional<Reason> reason(const AIToolRecognizer& rule,
                                                      std::span<const std::string> componentsBelow,
                                                      const platform::FolderDescriptor& folder,
                                                      const std::string& name);
};

} // namespace tidyro
