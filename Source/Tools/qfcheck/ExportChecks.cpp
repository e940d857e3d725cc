// SPDX-License-Identifier: MIT
// The names that the library exports.
#include <set>

#include "Check.h"
#include "ElfFile.h"

namespace {

void Loads(Host& host) { host.Load(); }

std::string KindName(bool isFunction) { return isFunction ? "a function" : "data"; }

void NamesAreThere(Host& host) {
    const std::vector<ExportedName> names = ExportedNames(host.PluginPath());
    std::string missing;
    for (const Interface::Export& wanted : Interface::kExports) {
        bool isThere = false;
        for (const ExportedName& name : names) {
            if (name.m_Name != wanted.m_Name) continue;
            isThere = true;
            Require(name.m_IsFunction == wanted.m_IsFunction,
                    name.m_Name + " is " + KindName(name.m_IsFunction) + ", expected " + KindName(wanted.m_IsFunction));
        }
        if (!isThere) missing += std::string(missing.empty() ? "" : ", ") + wanted.m_Name;
    }
    Require(missing.empty(), "not exported: " + missing);
    // The loader must find the names too: it looks them up by hash and does not read the list.
    for (const Interface::Export& wanted : Interface::kExports) host.Data(wanted.m_Name);
}

void NoOtherName(Host& host) {
    std::set<std::string> others;
    for (const ExportedName& name : ExportedNames(host.PluginPath())) others.insert(name.m_Name);
    for (const Interface::Export& wanted : Interface::kExports) others.erase(wanted.m_Name);
    std::string text;
    for (const std::string& name : others) text += (text.empty() ? "" : ", ") + name;
    Require(text.empty(), "exported besides: " + text);
}

} // namespace

std::vector<Check> ExportChecks() {
    return {
        {"load", "the library loads", Loads},
        {"exports.names", "the 25 names are exported, decorated as the interface has them", NamesAreThere},
        {"exports.nothing-else", "no other name is exported", NoOtherName},
    };
}
