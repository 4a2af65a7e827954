#include "Rooms/Find/Services/FindSearchEngine.h"
#include "Base/UnicodeText.h"
#include <algorithm>
#include <string>
namespace tidyro {
struct FindSearchEngine::Memory {};
FindSearchEngine::FindSearchEngine() = default;
FindSearchEngine::~FindSearchEngine() = default;
FindSearchResult FindSearchEngine::search(std::string_view query, const Question& q) {
    FindSearchResult r{.hits = {}};
    auto s = q.in.storage();
    std::string f = searchFolded(query);
    for (std::uint32_t e = 1; e < s->count(); ++e)
        if (s->foldedName(e).find(f) != std::string_view::npos) r.hits.push_back(e);
    r.matchCount = r.hits.size();
    std::sort(r.hits.begin(), r.hits.end(), [&](auto a, auto b) { return s->depth[a] < s->depth[b]; });
    if (r.hits.size() > q.limit) r.hits.resize(q.limit);
    return r;
}
} // namespace tidyro
