#pragma once
// Print offsets of one printed form: one row of table offset (kubun, code, top, left, hight) per form kind and
// code. Read and saved the same way by the dialog and by the runner.
#include "app/interaction.h"

#include <QString>
#include <optional>

namespace pel {

struct OffsetValues {
    double top = 0;
    double left = 0;
    double hight = 0;
};

class OffsetJob {
public:
    static constexpr double kLimit = 30;   // each offset stays within -30..30
    static constexpr int kAttempts = 11;   // immediate save attempts before giving up
    static constexpr int kFieldWidth = 5;  // "-30.0"

    OffsetJob(int kind, int code) : kind_(kind), code_(code) {}

    // The row of this form; nullopt when there is none or the read failed (the failure has been shown).
    std::optional<OffsetValues> read() const;
    // Saves the three field texts (trimmed; empty stores 0), creating the row when missing. After every attempt
    // failed: "記録エラー" and false.
    bool save(const QString& top, const QString& left, const QString& hight, Interaction& ui);
    // Attempts used by the last save.
    int attempts() const { return attempts_; }

    // "##0.0" right-aligned with spaces to width.
    static QString format(double value, int width = kFieldWidth);
    // What a field shows once left: its numeric value kept within the limits, formatted.
    static QString fieldText(const QString& typed, int width = kFieldWidth);

private:
    int kind_;
    int code_;
    int attempts_ = 0;
};

} // namespace pel
