#pragma once
// The suite's message catalogue: a short key names the situation, the catalogue chooses wording and buttons.
#include <QString>

namespace pel {

// Shows the catalogue dialog for key (extra text X where the entry uses it) and returns the button pressed;
// an unknown key shows nothing and returns 0. With yieldFirst, pending window messages run once before.
int fnMsg(const QString& key, const QString& extra = QString(), bool yieldFirst = false);

struct CatalogueEntry {
    QString text;
    int style = 0;
};
// The text and style fnMsg would show; false for an unknown key.
bool catalogueEntry(const QString& key, const QString& extra, CatalogueEntry* entry);

} // namespace pel
