#pragma once

// What every fuzz target shares: quiet logging, and a check that aborts (so that
// libFuzzer keeps the input) with the broken rule in words.

#include <QLoggingCategory>

#include <cstdio>
#include <cstdlib>

namespace FuzzSupport {

inline void quietLogging() {
    QLoggingCategory::setFilterRules(
        QStringLiteral("*.debug=false\n*.info=false\n*.warning=false"));
}

inline void require(bool holds, const char* rule) {
    if (!holds) {
        std::fprintf(stderr, "broken: %s\n", rule);
        std::abort();
    }
}

} // namespace FuzzSupport
