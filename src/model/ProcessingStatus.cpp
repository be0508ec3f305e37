#include "ProcessingStatus.h"

#include <array>
#include <utility>

namespace {
// The display texts differ from the case names in two rows.
const std::array<std::pair<ProcessingStatus, const char16_t*>, 5> rawValues{{
    {ProcessingStatus::pending, u"Pending"},
    {ProcessingStatus::processing, u"Remuxing"},
    {ProcessingStatus::completed, u"Completed"},
    {ProcessingStatus::failed, u"Error"},
    {ProcessingStatus::skipped, u"Skipped"},
}};
} // namespace

QString rawValue(ProcessingStatus status) {
    for (const auto& [value, raw] : rawValues) {
        if (value == status) {
            return QString::fromUtf16(raw);
        }
    }
    Q_UNREACHABLE();
    return QString();
}

std::optional<ProcessingStatus> processingStatusFromRawValue(const QString& raw) {
    for (const auto& [value, text] : rawValues) {
        if (raw == QString::fromUtf16(text)) {
            return value;
        }
    }
    return std::nullopt;
}
