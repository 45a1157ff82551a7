#include "SourceFile.h"

#include <map>
#include <set>

namespace velmora {

std::vector<std::string> distinctSiblingNames(const std::vector<std::string>& names)
{
    std::set<std::string> taken(names.begin(), names.end());
    std::map<std::string, unsigned> seen;
    std::vector<std::string> out;
    out.reserve(names.size());
    for (const std::string& name : names) {
        if (name.empty() || seen[name]++ == 0) {
            out.push_back(name);
            continue;
        }
        std::string candidate;
        for (unsigned k = seen[name]; taken.count(candidate = name + "#" + std::to_string(k)); ++k) {
        }
        taken.insert(candidate);
        out.push_back(candidate);
    }
    return out;
}

}  // namespace velmora
