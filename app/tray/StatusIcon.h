#pragma once

#include <QIcon>
#include <QPixmap>

// What the icon tells about the default instance.
enum class IconState {
    Unknown,     // before the first scan, or no default instance
    Stopped,     // a hollow ring
    Transition,  // starting or stopping: a half-filled disc
    Running,     // a filled dot
};

// The status item's "C": a white letter on a dark disc with a light rim, so it
// reads on light and dark panels alike, with a badge at the lower right whose
// shape (not only its colour) tells the state; the unknown state's badge is a
// question mark. Drawn as strokes rather than from a font, so it looks the
// same wherever fonts are missing or odd. `monochrome` draws the badge in the
// letter's white. The pixmap has size * devicePixelRatio pixels.
QPixmap drawStatusIcon(int size, IconState state = IconState::Unknown, qreal devicePixelRatio = 1,
                       bool monochrome = false);
QIcon makeStatusIcon(IconState state = IconState::Unknown);

// The themed name of the icon for `state`, e.g. "corvanta-monitor-running";
// the build writes those icons (drawn as above) into a directory of their own.
QString statusIconName(IconState state);
// That directory beside the program ("../share/corvanta-monitor/status-icons"
// from its executable), when it holds the icons; empty otherwise.
QString statusIconDirectory();
// Writes the icons of every state into `directory`, `size` pixels square.
bool writeStatusIcons(const QString &directory, int size);
