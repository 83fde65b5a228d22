#include "conveni/settingsjob.h"

#include "app/db/dbglobals.h"
#include "app/db/retry.h"
#include "app/oplog.h"
#include "ui/textrules.h"

namespace pel
{

const QList<Agency>& agencies()
{
    static const QList<Agency> list{
        {QStringLiteral("908997"), QStringLiteral("アプラス・コンビニ（おまかせ袋仕様 CSV出力仕様）")},
        {QStringLiteral("929023"), QStringLiteral("ＤＳＫ・コンビニ（furi_comシリーズ仕様 CSV出力仕様）")},
    };
    return list;
}

int agencyIndex(const QString& code)
{
    const QList<Agency>& list = agencies();
    for (int i = 0; i < list.size(); ++i)
        if (list.at(i).code == code) return i;
    return -1;
}

std::optional<bool> SettingsJob::opening()
{
    openingError_.clear();
    Recordset rs;
    if (!db_.DbSql(Sql("select * from sysfile where id=1"), rs)) {
        openingError_ = db_.ErrMsg();
        return std::nullopt;
    }
    if (rs.eof()) return std::nullopt;
    const bool used = fnToNum(fnGetFields(rs, QStringLiteral("conveni"))) != 0;
    for (const Agency& a : agencies()) {
        Recordset layout;
        if (!db_.DbSql(Sql("select * from cvsini where code=") + Sql::q(a.code) + " and kubun=0", layout)) {
            openingError_ = db_.ErrMsg();
            return std::nullopt;
        }
        if (layout.eof()) return std::nullopt;
    }
    return used;
}

SettingsJob::Loaded SettingsJob::load()
{
    Loaded l;
    Recordset rs;
    if (!db_.DbSql(Sql("SELECT * FROM cvsset"), rs)) {
        l.error = db_.ErrMsg();
        return l;
    }
    if (rs.eof()) {
        l.index = 0;
        return l;
    }
    const QString agency = fnTrim(fnGetFields(rs, QStringLiteral("cfcode1")));
    if (agency.isEmpty()) {
        l.index = 0;
        return l;
    }
    Recordset sys;
    if (!db_.DbSql(Sql("select conveni from sysfile where id=1"), sys)) {
        l.error = db_.ErrMsg();
        return l;
    }
    if (!sys.eof()) {
        const QString conveni = fnGetFields(sys, QStringLiteral("conveni"));
        if (conveni == QLatin1String("1") || conveni == QLatin1String("2")) {
            const int i = agencyIndex(agency);
            if (i >= 0) l.index = i;
        }
    }
    // shown even when collection is not used
    l.code = fnTrim(fnGetFields(rs, QStringLiteral("ckcode1")));
    return l;
}

SettingsJob::Stored SettingsJob::stored()
{
    Stored s;
    Recordset sys, rs;
    if (!db_.DbSql(Sql("select conveni from sysfile where id=1"), sys) ||
        !db_.DbSql(Sql("select * from cvsset where code=1"), rs)) {
        s.error = db_.ErrMsg();
        return s;
    }
    if (!sys.eof())
        s.conveni = fnGetFields(sys, QStringLiteral("conveni"));
    if (!rs.eof()) {
        s.agency = fnGetFields(rs, QStringLiteral("cfcode1"));
        s.code = fnGetFields(rs, QStringLiteral("ckcode1"));
    }
    return s;
}

bool SettingsJob::editWithRetries(const Sql& select, const std::function<bool(Recordset&)>& fill, int* attempts)
{
    bool skipped = false;
    const RetryResult r = retrySilently(kAttempts, [&](QString* error) {
        Recordset rs;
        if (!db_.DbSqlEdit(select, rs)) {
            skipped = true; // the row cannot be opened for editing: the table is left alone
            return true;
        }
        if (!fill(rs)) {
            *error = rs.lastError();
            return false;
        }
        return rs.update(error);
    });
    *attempts = skipped ? 0 : r.attempts;
    return r.ok;
}

SettingsJob::Saved SettingsJob::save(bool used, const QString& agencyCode, const QString& code, Interaction& ui)
{
    sysfileAttempts_ = cvssetAttempts_ = 0;
    const int ask = mb::YesNo | mb::Information | mb::DefaultButton2;
    if (used) {
        const QString trimmed = fnTrim(code);
        if (trimmed.isEmpty()) {
            ui.messageBox(QStringLiteral("企業コードを入力してください"), mb::Exclamation);
            return Saved::CodeRefused;
        }
        if (agencyCode == QLatin1String("908997") && trimmed.size() != 4) {
            ui.messageBox(QStringLiteral("アプラスの企業コードは４桁です"), mb::Exclamation);
            return Saved::CodeRefused;
        }
        if (agencyCode == QLatin1String("929023") && trimmed.size() != 5) {
            ui.messageBox(QStringLiteral("ＤＳＫの企業コードは５桁です"), mb::Exclamation);
            return Saved::CodeRefused;
        }
        // asked at every save of a used setting, not only when the agency changed
        if (ui.messageBox(QStringLiteral("ファイナンス会社の変更をしますがよろしいですか？"), ask) != answer::Yes)
            return Saved::Declined;
        if (ui.messageBox(QStringLiteral("本当に変更してもよろしいですか？\r\n再度、間違いがないか確認してください\r\n"
                                         "契約外のファイナンス会社を選択した場合、正しい入金データを取得できません"),
                          ask) == answer::No)
            return Saved::Declined;
        if (ui.messageBox(QStringLiteral("ファイナンス会社の変更をする場合、企業コードの変更もしてください\r\n"
                                         "変更しましたか？"),
                          ask) == answer::No)
            return Saved::Declined;
    }
    const QString question =
        kCaption + (used ? QStringLiteral(" を記録します") : QStringLiteral(" を記録します　（コンビニを使用しない）"));
    if (ui.messageBox(question, mb::YesNo | mb::Information) != answer::Yes) return Saved::Declined;

    ui.lock(true);
    bool ok = db_.BeginTns();
    if (ok) {
        const int index = agencyIndex(agencyCode);
        ok = editWithRetries(
            Sql("select * from sysfile where id=1"),
            [&](Recordset& rs) {
                if (!used) return fnSetFields(rs, QStringLiteral("conveni"), QStringLiteral("0"));
                if (index < 0) return true; // another code leaves conveni as it is
                return fnSetFields(rs, QStringLiteral("conveni"), QString::number(index + 1));
            },
            &sysfileAttempts_);
        if (ok && used)
            ok = editWithRetries(
                Sql("select * from cvsset where code=1"),
                [&](Recordset& rs) {
                    const QString cf = agencyCode.isEmpty() ? QString() : fnPadLeft(agencyCode, 6);
                    return fnSetFields(rs, QStringLiteral("code"), QStringLiteral("1")) &&
                           fnSetFields(rs, QStringLiteral("cfcode1"), cf) &&
                           fnSetFields(rs, QStringLiteral("ckcode1"), code) &&
                           fnSetFields(rs, QStringLiteral("cvkbn"), QStringLiteral("1"));
                },
                &cvssetAttempts_);
        if (ok)
            ok = db_.CommitTns();
        else
            (void)db_.RollbackTns();
    }
    if (!ok) {
        ui.lock(false);
        ui.msg(QStringLiteral("記録エラー"));
        return Saved::Failed;
    }
    opeLog(kCaption, 2, used ? QStringLiteral("コンビニを使用する") : QStringLiteral("コンビニを使用しない"));
    ui.lock(false);
    ui.messageBox(QStringLiteral("記録しました。"), mb::Information);
    return Saved::Yes;
}

} // namespace pel
