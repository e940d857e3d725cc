// SPDX-License-Identifier: MIT
#include "Check.h"

const std::vector<Check>& AllChecks() {
    static const std::vector<Check> checks = [] {
        std::vector<Check> all;
        for (const auto part : {ExportChecks, TableChecks, CallChecks, LogChecks, BadCallChecks, LifeChecks,
                                FrameChecks, SessionChecks, ModelChecks, ProcessChecks}) {
            const std::vector<Check> some = part();
            all.insert(all.end(), some.begin(), some.end());
        }
        return all;
    }();
    return checks;
}
