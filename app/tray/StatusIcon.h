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
// same wherever fonts are missing or odd. The pixmap has size *
// devicePixelRatio pixels.
QPixmap drawStatusIcon(int size, IconState state = IconState::Unknown, qreal devicePixelRatio = 1);
QIcon makeStatusIcon(IconState state = IconState::Unknown);

// The state in words, for screen readers and hosts that show no icon.
QString statusIconDescription(IconState state);

// The themed name of the icon for `state`, e.g. "corvanta-monitor-running",
// and of its one-colour variant ("corvanta-monitor-running-symbolic"), which
// panels that draw symbolic icons recolour to match their theme. The build
// writes both (the pixmap drawn as above, the variant as SVG) into a
// directory of their own.
QString statusIconName(IconState state, bool symbolic = false);
// That directory beside the program ("../share/corvanta-monitor/status-icons"
// from its executable), when it holds the icons; empty otherwise.
QString statusIconDirectory();
// Writes the icons of every state into `directory`, the pixmaps `size`
// pixels square.
bool writeStatusIcons(const QString &directory, int size);
