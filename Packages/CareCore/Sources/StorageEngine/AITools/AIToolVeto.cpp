#include "StorageEngine/AITools/AIToolVeto.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>

#if defined(__x86_64__)
#include <emmintrin.h>
#endif

#include "Base/UnicodeText.h"
#include "Platform/Files/FileContents.h"

namespace tidyro {

namespace {

using namespace std::string_view_literals;

constexpr bool isLowerLetter(char byte) { return byte >= 'a' && byte <= 'z'; }
constexpr bool isUpperLetter(char byte) { return byte >= 'A' && byte <= 'Z'; }
constexpr bool isBlank(char byte) {
    return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r';
}

template <std::size_t N>
bool isAmongTexts(const std::array<std::string_view, N>& texts, std::string_view text) {
    return std::ranges::find(texts, text) != texts.end();
}

/// Whether lower-case letters begin with a word for conversations or credentials. What follows does
/// not matter: "sessionid" and "memories" tell as much as "session" and "memory".
bool beginsTelling(std::string_view rest) {
    const auto begins = [&](std::string_view word) { return rest.starts_with(word); };
    switch (rest.front()) {
    case 'a': // "author" names people, "authorization" does not
        return begins("auth") && (!begins("author") || begins("authoris") || begins("authoriz") ||
                                  begins("authorit"));
    case 'c': return begins("chat") || begins("conversation") || begins("credential");
    case 'h': return begins("histor");
    case 'm': return begins("memor");
    case 'p': return begins("password") || begins("passwd") || begins("passphrase");
    case 's': return begins("session") || begins("secret");
    case 't': return begins("token") || begins("transcript");
    default: return false;
    }
}

bool holdsTelling(std::string_view lowered) {
    for (; !lowered.empty(); lowered.remove_prefix(1)) {
        if (beginsTelling(lowered)) return true;
    }
    return false;
}

/// "key" ends and begins many words that have nothing to do with keys.
bool isOfKeys(std::string_view word) {
    constexpr auto kept = std::to_array<std::string_view>(
        {"chain", "chains", "data", "file", "files", "id", "ids", "pair", "pairs", "ring", "rings",
         "store", "stores", "tab", "tabs", "vault", "vaults"});
    constexpr auto others = std::to_array<std::string_view>(
        {"donkey", "hockey", "hotkey", "jockey", "monkey", "turkey", "whiskey"});
    if (word.starts_with("key") && isAmongTexts(kept, word.substr(3))) return true;
    if (word.ends_with('s')) word.remove_suffix(1);
    return word.ends_with("key") &&
           std::ranges::none_of(others, [&](std::string_view end) { return word.ends_with(end); });
}

bool isTelling(std::string_view word) {
    return holdsTelling(word) || word == "cred" || word == "creds" || isOfKeys(word);
}

/// Of plain letters, which may be upper and lower case.
bool hasTellingWordIn(std::string_view letters) {
    std::string lowered(letters);
    std::ranges::transform(lowered, lowered.begin(), lowerASCII);
    if (isTelling(lowered)) return true; // also in a case that separates its letters
    std::size_t begin = 0;
    for (std::size_t i = 1; i < letters.size(); ++i) {
        const bool isAfterAcronym = isUpperLetter(letters[i - 1]) && i + 1 < letters.size() &&
                                    isLowerLetter(letters[i + 1]);
        if (!isUpperLetter(letters[i]) || !(isLowerLetter(letters[i - 1]) || isAfterAcronym)) {
            continue;
        }
        if (isTelling(std::string_view(lowered).substr(begin, i - begin))) return true;
        begin = i;
    }
    return begin > 0 && isTelling(std::string_view(lowered).substr(begin));
}

bool hasTellingWordInPlain(std::string_view text) {
    const auto isLetter = [](char byte) { return isLowerLetter(byte) || isUpperLetter(byte); };
    while (true) {
        const auto begin = std::ranges::find_if(text, isLetter);
        if (begin == text.end()) return false;
        text.remove_prefix(static_cast<std::size_t>(begin - text.begin()));
        const auto length =
            static_cast<std::size_t>(std::ranges::find_if_not(text, isLetter) - text.begin());
        if (hasTellingWordIn(text.substr(0, length))) return true;
        text.remove_prefix(length);
    }
}

/// Letters and digits of full width as the usual ones.
std::string ofUsualWidth(std::string_view text) {
    std::string made;
    made.reserve(text.size());
    while (!text.empty()) {
        // U+FF01 to U+FF5E stand for "!" to "~", in this order.
        const std::size_t length = characterLength(text);
        const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
        const unsigned offset =
            length == 3 && byte(0) == 0xEF && (byte(1) == 0xBC || byte(1) == 0xBD)
                ? (byte(1) - 0xBCU) * 64 + byte(2) - 0x80U
                : 0;
        if (offset >= 1 && offset <= 0x5E) {
            made += static_cast<char>('!' + offset - 1);
        } else {
            made.append(text.substr(0, length));
        }
        text.remove_prefix(length);
    }
    return made;
}

// -- contents ---------------------------------------------------------------------------------

/// What no document begins with.
bool isDatabaseByContents(std::string_view bytes) {
    constexpr auto beginnings = std::to_array<std::string_view>(
        {"SQLite format 3\0"sv, "\x37\x7F\x06\x82"sv, "\x37\x7F\x06\x83"sv, // its log
         "\xD9\xD5\x05\xF9\x20\xA1\x63\xD7"sv});                            // its journal
    return std::ranges::any_of(beginnings,
                               [&](std::string_view begin) { return bytes.starts_with(begin); });
}

/// One compressed stream, which is how conversations are archived. An archive of files and the
/// objects of a repository are something else; whole rules find nothing but these.
bool isCompressedStream(std::string_view bytes) {
    constexpr auto beginnings =
        std::to_array<std::string_view>({"\x1F\x8B\x08"sv, "\x28\xB5\x2F\xFD"sv,
                                         "\xFD"
                                         "7zXZ\0"sv,
                                         "BZh"sv, "\x04\x22\x4D\x18"sv});
    return std::ranges::any_of(beginnings,
                               [&](std::string_view begin) { return bytes.starts_with(begin); });
}

bool hasPrivateKey(std::string_view bytes) {
    constexpr std::size_t maxBefore = 32; // "-----BEGIN ", and of which kind
    for (std::size_t at = bytes.find("PRIVATE KEY"); at != bytes.npos;
         at = bytes.find("PRIVATE KEY", at + 1)) {
        const std::size_t from = at - std::min(at, maxBefore);
        if (bytes.substr(from, at - from).contains("-----BEGIN ")) return true;
    }
    return false;
}

/// Text of two or four bytes a character: its zeros gone, so that what is plain in it is plain.
std::optional<std::string> narrowed(std::string_view bytes) {
    const std::string_view head = bytes.substr(0, 64);
    const bool hasMark = head.starts_with("\xFF\xFE") || head.starts_with("\xFE\xFF");
    const auto zeros = static_cast<std::size_t>(std::ranges::count(head, '\0'));
    if (head.size() < 4 || (!hasMark && zeros * 4 < head.size())) return std::nullopt;
    if (!hasMark && head[0] != '\0' && head[1] != '\0') return std::nullopt;
    std::string made(bytes);
    std::erase(made, '\0');
    return made;
}

std::optional<unsigned> hexValue(std::string_view digits) {
    unsigned value = 0;
    for (const char digit : digits) {
        const char lowered = lowerASCII(digit);
        if (digit >= '0' && digit <= '9') {
            value = value * 16 + static_cast<unsigned>(digit - '0');
        } else if (lowered >= 'a' && lowered <= 'f') {
            value = value * 16 + static_cast<unsigned>(lowered - 'a') + 10;
        } else {
            return std::nullopt;
        }
    }
    return value;
}

/// The letters of a key in lower case, escapes read; its separators are left out.
std::string lettersOf(std::string_view key) {
    std::string letters;
    for (std::size_t i = 0; i < key.size(); ++i) {
        char byte = key[i];
        if (byte == '\\') { // or several, in a document that stands in a text of another one
            while (i + 1 < key.size() && key[i + 1] == '\\') ++i;
            if (i + 6 > key.size() || key[i + 1] != 'u') continue;
            const auto value = hexValue(key.substr(i + 2, 4));
            if (!value) continue;
            i += 5;
            if (*value > 0x7F) continue;
            byte = static_cast<char>(*value);
        }
        if (const char lowered = lowerASCII(byte); isLowerLetter(lowered)) letters += lowered;
    }
    return letters;
}

bool isOfCredentials(std::string_view letters) {
    constexpr auto endings =
        std::to_array<std::string_view>({"apikey", "privatekey", "secretkey", "accesskey", "sshkey",
                                         "signingkey", "encryptionkey"});
    constexpr auto words =
        std::to_array<std::string_view>({"token", "secret", "password", "credential"});
    if (letters.ends_with('s')) letters.remove_suffix(1);
    return std::ranges::any_of(endings, [&](auto end) { return letters.ends_with(end); }) ||
           std::ranges::any_of(words, [&](auto word) { return letters.contains(word); });
}

/// Whether the letters of a word for conversations or credentials are all in the key. Few other
/// keys have them.
bool mayTell(std::string_view key) {
    constexpr auto setOf = [](std::string_view letters) {
        std::uint32_t set = 0;
        for (const char letter : letters) set |= 1U << (letter & 31);
        return set;
    };
    constexpr std::array sets{setOf("role"),       setOf("messages"), setOf("prompt"),
                              setOf("auth"),       setOf("chat"),     setOf("conversation"),
                              setOf("credential"), setOf("histor"),   setOf("memor"),
                              setOf("passwd"),     setOf("password"), setOf("passphrase"),
                              setOf("session"),    setOf("secret"),   setOf("token"),
                              setOf("transcript"), setOf("key")};
    std::uint32_t inKey = 0;
    for (const char byte : key) {
        if (byte == '\\') return true; // any letter
        inKey |= 1U << (byte & 31);    // more than letters, never less
    }
    return std::ranges::any_of(sets, [&](std::uint32_t set) { return (set & ~inKey) == 0; });
}

bool isTellingKey(std::string_view key) {
    if (!mayTell(key)) return false;
    const std::string letters = lettersOf(key);
    return letters.ends_with("role") || letters.contains("messages") ||
           letters.contains("prompt") || holdsTelling(letters) || isOfCredentials(letters);
}

constexpr std::size_t blockSize = 64;

constexpr bool mayEndKey(char byte) {
    return byte == '"' || byte == '\'' || static_cast<unsigned char>(byte) <= ' ';
}

/// Of the bytes behind `block[0]`, a bit for each colon behind what may end a key. Nearly all bytes
/// of a file are passed over here.
std::uint64_t keyColons(const char* block) {
    std::uint64_t found = 0;
#if defined(__x86_64__)
    constexpr std::size_t step = sizeof(__m128i);
    const auto bytesAt = [](const char* at) {
        __m128i bytes;
        std::memcpy(&bytes, at, step);
        return bytes;
    };
    for (std::size_t i = 0; i < blockSize; i += step) {
        const __m128i before = bytesAt(block + i);
        const __m128i isBlankOrLess =
            _mm_cmpeq_epi8(_mm_min_epu8(before, _mm_set1_epi8(' ')), before);
        const __m128i isQuote = _mm_or_si128(_mm_cmpeq_epi8(before, _mm_set1_epi8('"')),
                                             _mm_cmpeq_epi8(before, _mm_set1_epi8('\'')));
        const __m128i isColon = _mm_cmpeq_epi8(bytesAt(block + i + 1), _mm_set1_epi8(':'));
        const auto bits = static_cast<std::uint32_t>(
            _mm_movemask_epi8(_mm_and_si128(isColon, _mm_or_si128(isQuote, isBlankOrLess))));
        found |= static_cast<std::uint64_t>(bits) << i;
    }
#else
    for (std::size_t i = 0; i < blockSize; ++i) {
        const bool isFound = block[i + 1] == ':' && mayEndKey(block[i]);
        found |= static_cast<std::uint64_t>(isFound) << i;
    }
#endif
    return found;
}

/// The key that ends before a colon; empty for none.
std::string_view keyBefore(std::string_view text) {
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    if (text.size() < 2) return {};
    const char quote = text.back();
    if (quote != '"' && quote != '\'') return {};
    text.remove_suffix(1);
    std::size_t begin = text.size();
    while (begin > 0 && text[begin - 1] != quote) --begin;
    if (begin == 0) return {};
    text.remove_prefix(begin);
    while (text.ends_with('\\')) text.remove_suffix(1);
    return text;
}

/// Some of the keys that mean nothing. Documents repeat their keys.
class KnownKeys {
  public:
    [[nodiscard]] bool contains(std::string_view key) { return placeOf(key) == key; }
    void add(std::string_view key) { placeOf(key) = key; }

  private:
    std::string_view& placeOf(std::string_view key) {
        const auto first = static_cast<unsigned char>(key.front());
        const auto last = static_cast<unsigned char>(key.back());
        return keys_[(first * 7U + last * 3U + key.size()) % keys_.size()];
    }

    std::array<std::string_view, 64> keys_{};
};

/// Calls `isFound` with each key and with what follows its colon, until one is found. It looks for
/// keys wherever they stand: in a document that is cut off, in one of many lines, behind the date
/// of a log, in a text of another document. Reads each byte a bounded number of times.
template <class IsFound>
bool findKey(std::string_view text, const IsFound& isFound) {
    const auto isFoundAt = [&](std::size_t colon) {
        const std::string_view key = keyBefore(text.substr(0, colon));
        return !key.empty() && isFound(key, text.substr(colon + 1));
    };
    std::size_t at = 0;
    for (; at + blockSize < text.size(); at += blockSize) {
        for (std::uint64_t left = keyColons(text.data() + at); left != 0; left &= left - 1) {
            if (isFoundAt(at + static_cast<std::size_t>(std::countr_zero(left)) + 1)) return true;
        }
    }
    for (std::size_t i = at + 1; i < text.size(); ++i) {
        if (text[i] == ':' && mayEndKey(text[i - 1]) && isFoundAt(i)) return true;
    }
    return false;
}

bool hasTellingKey(std::string_view text) {
    KnownKeys known;
    return findKey(text, [&](std::string_view key, std::string_view /*value*/) {
        if (known.contains(key)) return false;
        if (isTellingKey(key)) return true;
        known.add(key);
        return false;
    });
}

/// What even a document with such keys by nature does not hold: somebody's words, or a secret.
bool hasTellingValue(std::string_view text) {
    constexpr auto speakers = std::to_array<std::string_view>(
        {"user", "assistant", "system", "developer", "human", "model", "tool"});
    constexpr std::size_t minSecret = 16;
    constexpr std::size_t maxValue = 64;
    KnownKeys known;
    return findKey(text, [&](std::string_view key, std::string_view after) {
        if (known.contains(key)) return false;
        const std::string letters = mayTell(key) ? lettersOf(key) : std::string();
        const bool isRole = letters.ends_with("role");
        if (!isRole && !isOfCredentials(letters)) {
            known.add(key);
            return false;
        }
        const std::size_t begin = after.find_first_not_of(" \t\r\n\\");
        if (begin == after.npos || (after[begin] != '"' && after[begin] != '\'')) return false;
        const std::string_view value = after.substr(begin + 1, maxValue);
        const std::string_view whole = value.substr(0, value.find_first_of("\"'\\"));
        if (isRole) return isAmongTexts(speakers, lettersOf(whole));
        return whole.size() >= minSecret && !whole.contains(' ');
    });
}

/// A name and its value on every line, as in settings and in lists for the environment, and a name
/// of credentials among them.
bool isSettingsWithSecrets(std::string_view text) {
    bool isFound = false;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        while (!line.empty() && isBlank(line.front())) line.remove_prefix(1);
        if (line.empty() || line.front() == '#' || line.front() == ';' || line.front() == '[') {
            continue;
        }
        if (line.starts_with("export ")) line.remove_prefix(7);
        if (line.starts_with("- ")) line.remove_prefix(2);
        const auto isOfName = [](char byte) {
            return isLowerLetter(lowerASCII(byte)) || (byte >= '0' && byte <= '9') || byte == '_' ||
                   byte == '-' || byte == '.' || byte == '"';
        };
        const auto length =
            static_cast<std::size_t>(std::ranges::find_if_not(line, isOfName) - line.begin());
        const std::size_t sign = line.find_first_not_of(' ', length);
        const bool isName = length > 0 && (line[0] < '0' || line[0] > '9'); // no date of a log
        if (!isName || sign == line.npos || (line[sign] != '=' && line[sign] != ':')) {
            return text.empty() && isFound; // the last line may be cut off
        }
        isFound |= isOfCredentials(lettersOf(line.substr(0, length)));
    }
    return isFound;
}

/// Whether a text tells in any of its forms.
template <class Tells>
bool isToldBy(std::string_view bytes, const Tells& tells) {
    if (tells(bytes)) return true;
    const auto narrow = narrowed(bytes);
    return narrow && tells(std::string_view(*narrow));
}

/// What no rule excuses.
bool hasUnmistakableContents(std::string_view beginning) {
    return isDatabaseByContents(beginning) || isCompressedStream(beginning) ||
           isToldBy(beginning, [](std::string_view text) {
               return hasPrivateKey(text) || isSettingsWithSecrets(text);
           });
}

} // namespace

bool AIToolVeto::hasTellingWord(std::string_view component) {
    if (isASCII(component)) return hasTellingWordInPlain(component);
    const std::string usual = ofUsualWidth(component);
    const auto isStrange = [](char byte) { return static_cast<unsigned char>(byte) >= 0x80; };
    // What is no plain letter separates words, adorns their letters or is not even visible.
    std::string separated = usual;
    std::ranges::replace_if(separated, isStrange, ' ');
    std::string joined = usual;
    std::erase_if(joined, isStrange);
    return hasTellingWordInPlain(separated) || hasTellingWordInPlain(joined) ||
           hasTellingWordInPlain(searchFolded(usual));
}

bool AIToolVeto::hasTellingContents(std::string_view beginning) {
    return hasUnmistakableContents(beginning) || isToldBy(beginning, hasTellingKey);
}

bool AIToolVeto::hasTellingContentsDespite(const AIToolRecognizer& rule,
                                           std::string_view beginning) {
    if (!rule.mayContainConversationKeys) return hasTellingContents(beginning);
    return hasUnmistakableContents(beginning) || isToldBy(beginning, hasTellingValue);
}

std::optional<AIToolVeto::Reason> AIToolVeto::reason(const AIToolRecognizer& rule,
                                                     std::span<const std::string> componentsBelow,
                                                     const platform::FolderDescriptor& folder,
                                                     const std::string& name) {
    if (!rule.mayBeNamedLikeConversations &&
        (std::ranges::any_of(componentsBelow, hasTellingWord) || hasTellingWord(name))) {
        return Reason::tellingName;
    }
    platform::FileContents::OwnerHint owner;
    auto file = platform::FileContents::open(folder, name.c_str(), owner);
    if (!file) return Reason::unreadable;
    const auto buffer = std::make_unique_for_overwrite<std::byte[]>(bytesLookedAt); // NOLINT
    const auto count = file->read(0, {buffer.get(), bytesLookedAt});
    if (!count) return Reason::unreadable;
    const std::string_view beginning(reinterpret_cast<const char*>(buffer.get()), *count); // NOLINT
    if (hasTellingContentsDespite(rule, beginning)) return Reason::tellingContents;
    return std::nullopt;
}

} // namespace tidyro
