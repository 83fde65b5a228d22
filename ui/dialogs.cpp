#include "ui/dialogs.h"

#include <QDir>
#include <QFileInfo>

#include <array>
#include <vector>

namespace pel {
namespace {

class DefaultService final : public DialogService {
public:
    int messageBox(const QString&, int style, const QString&) override { return defaultAnswer(style); }
};

DefaultService gDefault;
DialogService* gService = &gDefault;

} // namespace

int defaultAnswer(int style)
{
    static const std::array<std::vector<int>, 7> sets = {{
        {answer::Ok},
        {answer::Ok, answer::Cancel},
        {answer::Abort, answer::Retry, answer::Ignore},
        {answer::Yes, answer::No, answer::Cancel},
        {answer::Yes, answer::No},
        {answer::Retry, answer::Cancel},
        {answer::Cancel, answer::TryAgain, answer::Continue},
    }};
    const int b = mb::buttons(style);
    const auto& set = sets[static_cast<size_t>(b < 7 ? b : 0)];
    const size_t d = static_cast<size_t>(mb::defaultButton(style));
    return set[d < set.size() ? d : 0];
}

namespace {

QString existingFolderOf(const QString& path)
{
    const QString trimmed = path.trimmed();
    if (trimmed.isEmpty() || !QDir::isAbsolutePath(QDir::fromNativeSeparators(trimmed)))
        return QString();
    QFileInfo info(QDir::fromNativeSeparators(trimmed));
    QString folder = info.isDir() ? info.absoluteFilePath() : info.absolutePath();
    while (!QFileInfo(folder).isDir()) {
        const QString up = QFileInfo(folder).path();
        if (up == folder)
            return QString();
        folder = up;
    }
    return QDir::toNativeSeparators(QDir::cleanPath(folder));
}

} // namespace

QString startFolder(const QString& path, const QString& remembered)
{
    const QString folder = existingFolderOf(path);
    return folder.isEmpty() ? existingFolderOf(remembered) : folder;
}

QString startFile(const QString& path, const QString& remembered)
{
    const QString folder = startFolder(path, remembered);
    const auto nameOf = [](const QString& p) {
        const QString trimmed = p.trimmed();
        const QFileInfo info(QDir::fromNativeSeparators(trimmed));
        return trimmed.isEmpty() || info.isDir() ? QString() : info.fileName();
    };
    const QString own = nameOf(path);
    const QString name = own.isEmpty() ? nameOf(remembered) : own;
    if (folder.isEmpty() || name.isEmpty())
        return folder;
    return QDir::toNativeSeparators(QDir(QDir::fromNativeSeparators(folder)).filePath(name));
}

DialogService& dialogs()
{
    return *gService;
}

DialogService* setDialogService(DialogService* service)
{
    DialogService* previous = gService == &gDefault ? nullptr : gService;
    gService = service ? service : &gDefault;
    return previous;
}

int msgBox(const QString& text, int style, const QString& title)
{
    return dialogs().messageBox(text, style, title);
}

} // namespace pel
