#pragma once
// Posting one imported payment: a row of inmoney and the customer's ledger line in cdai, each opened for editing
// (the row of that order and date, or a new one) and retried silently when another program holds it.
#include "app/db/dbclass.h"

#include <QString>
#include <optional>

namespace pel {

class PaymentPosting {
public:
    static constexpr int kAttempts = 11; // the first try and ten silent retries

    // waitMs: the pause before each payment-exists check, so that the last posting is visible to the check's
    // own connection (mirabo.ini CvsRead/CheckWait).
    explicit PaymentPosting(int waitMs);

    // Whether inmoney holds a row of the order on any date; nullopt with the engine's text when it cannot tell.
    std::optional<bool> paymentExists(qint32 denno, QString* error);
    // inmoney and, when the order exists, its cdai line, in one transaction on the global connection. False when
    // either write failed after its attempts: a failed payment leaves nothing, a failed ledger line leaves the
    // payment written.
    bool postPayment(const QString& line, qint32 denno, qint32 nday, qint32 money, qint16 pcode);
    // The last failure of postPayment.
    const QString& lastError() const { return error_; }

private:
    enum class Step { Done, PaymentFailed, LedgerFailed };
    Step post(const QString& line, qint32 denno, qint32 nday, qint32 money, qint16 pcode);
    int waitMs_;
    clsDbClass check_;
    bool checkOpen_ = false;
    QString error_;
};

// Waits ms milliseconds with the event loop running (the screen stays live, no CPU is burnt).
void waitLive(int ms);

} // namespace pel
