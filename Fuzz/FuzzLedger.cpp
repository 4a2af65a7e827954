// The file of the recovery ledger. After an even first byte the others are the file, after an odd
// one what is sealed in it: any bytes give receipts that are written and read back unchanged, or an
// error.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "Base/Base64.h"
#include "Base/Fault.h"
#include "Base/JSONCoding.h"
#include "CareDomain/SampleRecords.h"
#include "Platform/Machine/SealedBox.h"
#include "StorageEngine/Recovery/RecoveryLedger.h"

using namespace tidyro;

namespace {

const std::string ledgerKey(32, 'k');

std::string sealedFile(std::string_view payload) {
    const std::string box = platform::seal(std::as_bytes(std::span(ledgerKey)), payload);
    return R"({"version":1,"algorithm":"AES.GCM","sealedPayload":")" + base64Text(box) + "\"}";
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const bool isFile = data[0] % 2 == 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    const auto read = receiptsInLedger(isFile ? std::string(bytes) : sealedFile(bytes), ledgerKey);
    if (!read) {
        require(read.error().kind == RecoveryLedgerError::Kind::malformedEnvelope,
                "a damaged ledger is told as something else");
    } else {
        const auto again = receiptsInLedger(ledgerText(*read, ledgerKey), ledgerKey);
        require(again.has_value(), "a ledger that was written is not read back");
        require(jsonText(toJSON(*again)) == jsonText(toJSON(*read)),
                "a receipt changed on its way");
    }
    if (const auto plain = base64Bytes(bytes)) {
        require(base64Text(*plain) == bytes, "two texts have the same bytes");
    }
    return 0;
}

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maximum);

/// Random bytes seldom are a ledger: now and then one takes their place, to start from.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maximum, unsigned seed) {
    if (seed % 64 == 0) {
        const auto receipt = toJSON(testing::sample<CleanupReceipt>(seed / 64 % 100));
        const std::string payload = R"({"receipts":[)" + jsonText(receipt) + "]}";
        const std::string text = seed % 128 == 0 ? "0" + sealedFile(payload) : "1" + payload;
        if (text.size() <= maximum) {
            text.copy(reinterpret_cast<char*>(data), text.size());
            return text.size();
        }
    }
    return LLVMFuzzerMutate(data, size, maximum);
}
