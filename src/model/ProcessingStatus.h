#pragma once

// Where a queue item stands. The raw value is also the text the user reads.

#include <QString>

#include <optional>

enum class ProcessingStatus { pending, processing, completed, failed, skipped };

QString rawValue(ProcessingStatus status);
// A text outside the five raw values gives no status.
std::optional<ProcessingStatus> processingStatusFromRawValue(const QString& raw);
