#include "ui/msgcatalog.h"

#include "app/runtimeerror.h"
#include "ui/dialogs.h"

namespace pel {
namespace {

enum Style : int {
    Warn = mb::OkOnly | mb::Exclamation,
    Info = mb::OkOnly | mb::Information,
    AskYes = mb::YesNo | mb::Information,
    AskNo = mb::YesNo | mb::Information | mb::DefaultButton2,
    QuestNo = mb::YesNo | mb::Question | mb::DefaultButton2,
    Choose3 = mb::YesNoCancel | mb::Question | mb::DefaultButton3,
};

const QString CRLF = QStringLiteral("\r\n");

} // namespace

bool catalogueEntry(const QString& key, const QString& x, CatalogueEntry* entry)
{
    struct Row {
        const char16_t* key;
        int style;
        QString (*text)(const QString& x);
    };
    // Wording shared with the suite's other programs: keep every entry, even those this program never passes.
    static const Row rows[] = {
        {u"記録", AskYes, [](const QString& x) { return x.isEmpty() ? QStringLiteral("記録します") : QStringLiteral("記録します") + CRLF + x; }},
        {u"ｷｬﾝｾﾙ", AskYes, [](const QString&) { return QStringLiteral("入力項目を無効にします"); }},
        {u"削除", AskNo, [](const QString& x) { return x.isEmpty() ? QStringLiteral("削除します") : QStringLiteral("削除します") + CRLF + x; }},
        {u"未記入", Warn, [](const QString&) { return QStringLiteral("未記入項目があります"); }},
        {u"NOUPDATE", Warn, [](const QString&) { return QStringLiteral("このデータは記録・削除はできません"); }},
        {u"処理中止", AskYes, [](const QString&) { return QStringLiteral("処理を中止します"); }},
        {u"未登録", Warn, [](const QString&) { return QStringLiteral("未登録です"); }},
        {u"同商品", Warn, [](const QString&) { return QStringLiteral("明細に同一の商品があります"); }},
        {u"挿入", Warn, [](const QString&) { return QStringLiteral("これ以上挿入出来ません"); }},
        {u"行削", AskNo, [](const QString&) { return QStringLiteral("この行を削除します"); }},
        {u"在庫対象外", Warn, [](const QString&) { return QStringLiteral("この商品は在庫対象外です"); }},
        {u"伝票最大", Warn, [](const QString&) { return QStringLiteral("これ以上の伝票を作成できません"); }},
        {u"顧客最大", Warn, [](const QString&) { return QStringLiteral("これ以上の顧客を作成できません"); }},
        {u"商品最大", Warn, [](const QString&) { return QStringLiteral("これ以上の商品を作成できません"); }},
        {u"ﾃﾞｰﾀなし", Info, [](const QString&) { return QStringLiteral("該当データがありません"); }},
        {u"記録エラー", Warn, [](const QString& x) { return QStringLiteral("記録に失敗しました！") + CRLF + x + CRLF + QStringLiteral("すべて終了し、データメンテナンスから復旧をしてください"); }},
        {u"削除エラー", Warn, [](const QString&) { return QStringLiteral("削除に失敗しました！") + CRLF + QStringLiteral("すべて終了し、データメンテナンスから復旧をしてください"); }},
        {u"明細エラー", Warn, [](const QString&) { return QStringLiteral("明細がありません"); }},
        {u"納品書", Info, [](const QString&) { return QStringLiteral("納品書が印刷済みです"); }},
        {u"送り状", Info, [](const QString&) { return QStringLiteral("送り状が印刷済みです"); }},
        {u"郵便振替", Info, [](const QString&) { return QStringLiteral("郵便振替が印刷済みです"); }},
        {u"入金伝票", Warn, [](const QString&) { return QStringLiteral("入金処理がされています"); }},
        {u"返品伝票", Warn, [](const QString&) { return QStringLiteral("返品伝票があります"); }},
        {u"ReadOnly", Warn, [](const QString& x) { return x + QStringLiteral(" が読み取り専用になっています") + CRLF + QStringLiteral("読み取り専用を解除し、ＰＥＬＯＮＡを再起動して下さい"); }},
        {u"新規顧客", AskYes, [](const QString&) { return QStringLiteral("該当する顧客が見つかりません。新規顧客を作成しますか？"); }},
        {u"起動中", Warn, [](const QString&) { return QStringLiteral("このアプリケーションは既に起動されています"); }},
        {u"棚卸", AskYes, [](const QString&) { return QStringLiteral("既に同じ日付で棚卸伝票が存在します。記録しますか？") + CRLF + QStringLiteral("記録後の在庫は変動しません"); }},
        {u"DM抽出", AskYes, [](const QString&) { return QStringLiteral("ＤＭ抽出を行います"); }},
        {u"印刷物", Warn, [](const QString& x) { return x + QStringLiteral("が印刷済みです"); }},
        {u"NOT余白", Warn, [](const QString&) { return QStringLiteral("余白設定が行われていません"); }},
        {u"中止", AskNo, [](const QString&) { return QStringLiteral("この商品は中止商品です。入力を行いますか？"); }},
        {u"入金予定方法配送方法", Warn, [](const QString&) { return QStringLiteral("入金方法と送り状種類の関係が矛盾しています"); }},
        {u"最大行", Warn, [](const QString&) { return QStringLiteral("最大表示行数を超えました"); }},
        {u"未来", Warn, [](const QString&) { return QStringLiteral("受注日が１０日以上の未来の日付では、入力出来ません"); }},
        {u"NOT通常商品", Warn, [](const QString&) { return QStringLiteral("通常商品ではありません"); }},
        {u"msgExeLoadErr", Warn, [](const QString&) { return QStringLiteral("プログラムの呼び出しエラーです") + CRLF + lastErrorDescription(); }},
        {u"ＣＳＶ出力", Info, [](const QString&) { return QStringLiteral("保存しました"); }},
        {u"EAN", Info, [](const QString&) { return QStringLiteral("ＥＡＮバーコードの設定がされていません"); }},
        {u"ﾌﾟﾘﾝﾀｰｴﾗｰ", Info, [](const QString&) { return QStringLiteral("予期せぬプリンターエラーが発生しました"); }},
        {u"入力不適切", Info, [](const QString&) { return QStringLiteral("入力が不適切です"); }},
        {u"作業中", QuestNo, [](const QString& x) { return QStringLiteral("保存されていませんが、") + x + QStringLiteral("を終了しますか？"); }},
        {u"作業開始", AskNo, [](const QString&) { return QStringLiteral("作業を開始しますか？"); }},
        {u"ファイルエラー", Warn, [](const QString&) { return QStringLiteral("ファイルオープンに失敗しました！"); }},
        {u"ファイル書込み選択", Choose3, [](const QString& x) {
             return x + QStringLiteral("ファイルが存在します。上書きしますか？") + CRLF + QStringLiteral("「はい」\t上書") + CRLF +
                    QStringLiteral("「いいえ」\t追加") + CRLF + QStringLiteral("「ｷｬﾝｾﾙ」\t取消");
         }},
    };
    for (const Row& r : rows) {
        if (key == QStringView(r.key)) {
            if (entry) {
                entry->text = r.text(x);
                entry->style = r.style;
            }
            return true;
        }
    }
    return false;
}

int fnMsg(const QString& key, const QString& extra, bool yieldFirst)
{
    if (yieldFirst)
        dialogs().processEvents();
    CatalogueEntry e;
    if (!catalogueEntry(key, extra, &e))
        return 0;
    return dialogs().messageBox(e.text, e.style, kProductTitle);
}

} // namespace pel
