#pragma once
// The Japanese UI font chosen by name, so that kana and kanji never fall back to Chinese shapes or boxes.
#include <QFont>

namespace pel {

// The installed Japanese UI font at the screens' size (falls back to the application font when none is found).
QFont uiFont();
// Makes uiFont() the application font once; later calls do nothing.
void applyUiFont();

} // namespace pel
