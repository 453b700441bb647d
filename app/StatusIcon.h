#pragma once

#include <QIcon>
#include <QPixmap>

// The status item's "C": a white letter on a dark disc with a light rim, so it
// reads on light and dark panels alike. Drawn as a stroke rather than from a
// font, so it looks the same wherever fonts are missing or odd.
QPixmap drawStatusIcon(int size);
QIcon makeStatusIcon();
