#include "StatusIcon.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPainter>
#include <QPainterPath>
#include <QPen>

#include <algorithm>
#include <cmath>

namespace {

const QColor kDisc(0x26, 0x32, 0x3c);
const QColor kRim(0xe8, 0xe8, 0xe8);

QColor badgeColour(IconState state) {
    switch (state) {
        case IconState::Running:
            return QColor(0x3e, 0xd0, 0x70);
        case IconState::Stopped:
            return QColor(0xff, 0x6b, 0x6b);
        case IconState::Transition:
            return QColor(0xff, 0xc1, 0x3d);
        case IconState::Unknown:
            break;
    }
    return QColor(0xd8, 0xd8, 0xd8);
}

void drawBadge(QPainter &painter, const QRectF &area, IconState state) {
    const qreal size = area.width();
    const qreal rim = std::max(1.0, size / 9.0);
    painter.setPen(QPen(kRim, rim));
    painter.setBrush(kDisc);
    painter.drawEllipse(area.adjusted(rim / 2, rim / 2, -rim / 2, -rim / 2));

    const QColor ink = badgeColour(state);
    const qreal pad = rim + size * (size < 12 ? 0.04 : 0.1);
    const QRectF inner = area.adjusted(pad, pad, -pad, -pad);
    const qreal line = std::max(1.25, size / 6.0);
    const QRectF ring = inner.adjusted(line / 2, line / 2, -line / 2, -line / 2);
    switch (state) {
        case IconState::Running:
            painter.setPen(Qt::NoPen);
            painter.setBrush(ink);
            painter.drawEllipse(inner);
            break;
        case IconState::Stopped:
            painter.setPen(QPen(ink, line));
            painter.setBrush(Qt::NoBrush);
            painter.drawEllipse(ring);
            break;
        case IconState::Transition:
            painter.setPen(QPen(ink, line));
            painter.setBrush(Qt::NoBrush);
            painter.drawEllipse(ring);
            painter.setPen(Qt::NoPen);
            painter.setBrush(ink);
            painter.drawPie(inner, 90 * 16, 180 * 16);
            break;
        case IconState::Unknown: {
            // A question mark: a hook, a short stem and a dot.
            QPen pen(ink, line);
            pen.setCapStyle(Qt::RoundCap);
            painter.setPen(pen);
            painter.setBrush(Qt::NoBrush);
            const qreal w = inner.width();
            const QRectF hook(inner.left() + w * 0.2, inner.top(), w * 0.6, w * 0.5);
            QPainterPath path;
            path.arcMoveTo(hook, 180);
            path.arcTo(hook, 180, -270);
            path.lineTo(hook.center().x(), inner.top() + w * 0.68);
            painter.drawPath(path);
            painter.setPen(Qt::NoPen);
            painter.setBrush(ink);
            const qreal dot = line * 1.1;
            painter.drawEllipse(QPointF(hook.center().x(), inner.bottom() - dot / 2), dot / 2,
                                dot / 2);
            break;
        }
    }
}

// The same shapes in one colour on 16 units, filled rather than stroked:
// symbolic-icon hosts recolour fills only. The colour is a stylesheet's, as
// desktops that restyle icons to their colour scheme expect; the letter's
// ring opens wider towards the badge, since no rim separates them.
QByteArray symbolicStatusIcon(IconState state) {
    const QByteArray ring =
        "M8.5 12a3.5 3.5 0 1 0 7 0a3.5 3.5 0 1 0-7 0ZM10 12a2 2 0 1 0 4 0a2 2 0 1 0-4 0Z";
    QByteArray badge;
    switch (state) {
        case IconState::Running:
            badge = R"(<circle cx="12" cy="12" r="3.5"/>)";
            break;
        case IconState::Stopped:
            badge = R"(<path fill-rule="evenodd" d=")" + ring + R"("/>)";
            break;
        case IconState::Transition:
            badge = R"(<path fill-rule="evenodd" d=")" + ring +
                    R"("/><path d="M12 8.5A3.5 3.5 0 0 0 12 15.5Z"/>)";
            break;
        case IconState::Unknown:
            badge =
                R"(<path d="M10.1 10A1.9 1.9 0 1 1 12 11.9L12 10.7A0.7 0.7 0 1 0 11.3 10Z"/>)"
                R"(<rect x="11.4" y="11.3" width="1.2" height="1.6"/><circle cx="12" cy="14.3" r="0.75"/>)";
            break;
    }
    return R"(<svg xmlns="http://www.w3.org/2000/svg" width="16" height="16" viewBox="0 0 16 16">)"
           R"(<style id="current-color-scheme">.ColorScheme-Text{color:#bebebe}</style>)"
           R"(<g class="ColorScheme-Text" fill="currentColor">)"
           R"(<path d="M9.536 2.464A5 5 0 1 0 7.71 10.698L7.026 8.819A3 3 0 1 1 8.121 3.879Z"/>)" +
           badge + "</g></svg>\n";
}

}  // namespace

QPixmap drawStatusIcon(int size, IconState state, qreal devicePixelRatio) {
    QPixmap pixmap(qRound(size * devicePixelRatio), qRound(size * devicePixelRatio));
    pixmap.setDevicePixelRatio(devicePixelRatio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);

    const qreal rim = std::max(1.0, size / 16.0);
    const QRectF disc = QRectF(0, 0, size, size).adjusted(rim / 2, rim / 2, -rim / 2, -rim / 2);
    painter.setPen(QPen(kRim, rim));
    painter.setBrush(kDisc);
    painter.drawEllipse(disc);

    // The letter: an open ring, its gap to the right, drawn a little up and
    // left so the badge does not cover it.
    const qreal stroke = std::max(1.5, size / 7.0);
    const qreal inset = size * 0.24;
    const QRectF ring = QRectF(0, 0, size, size)
                            .adjusted(inset, inset, -inset, -inset)
                            .translated(-size * 0.06, -size * 0.06);
    QPen letter(Qt::white, stroke);
    letter.setCapStyle(Qt::FlatCap);
    painter.setPen(letter);
    painter.setBrush(Qt::NoBrush);
    constexpr int gapDegrees = 80;
    painter.drawArc(ring, (gapDegrees / 2) * 16, (360 - gapDegrees) * 16);

    // Small icons get a larger share for the badge, so its shape stays legible.
    const qreal badge = std::round(size * (size <= 24 ? 0.66 : 0.56));
    drawBadge(painter, QRectF(size - badge, size - badge, badge, badge), state);
    return pixmap;
}

QIcon makeStatusIcon(IconState state) {
    QIcon icon;
    for (const int size : {16, 22, 24, 32, 48, 64, 128}) {
        icon.addPixmap(drawStatusIcon(size, state));
        icon.addPixmap(drawStatusIcon(size, state, 2));
    }
    return icon;
}

QString statusIconDescription(IconState state) {
    switch (state) {
        case IconState::Running:
            return QCoreApplication::translate("StatusIcon",
                                               "Corvanta Monitor: the default instance is running");
        case IconState::Stopped:
            return QCoreApplication::translate("StatusIcon",
                                               "Corvanta Monitor: the default instance is stopped");
        case IconState::Transition:
            return QCoreApplication::translate(
                "StatusIcon", "Corvanta Monitor: the default instance is starting or stopping");
        case IconState::Unknown:
            break;
    }
    return QCoreApplication::translate("StatusIcon",
                                       "Corvanta Monitor: the default instance's state is unknown");
}

QString statusIconName(IconState state, bool symbolic) {
    QString name;
    switch (state) {
        case IconState::Running:
            name = QStringLiteral("corvanta-monitor-running");
            break;
        case IconState::Stopped:
            name = QStringLiteral("corvanta-monitor-stopped");
            break;
        case IconState::Transition:
            name = QStringLiteral("corvanta-monitor-transition");
            break;
        case IconState::Unknown:
            name = QStringLiteral("corvanta-monitor-unknown");
            break;
    }
    return symbolic ? name + QStringLiteral("-symbolic") : name;
}

QString statusIconDirectory() {
    const QString directory =
        QDir::cleanPath(QCoreApplication::applicationDirPath() +
                        QStringLiteral("/../share/corvanta-monitor/status-icons"));
    return QFileInfo::exists(directory + u'/' + statusIconName(IconState::Unknown, true) +
                             QStringLiteral(".svg"))
               ? directory
               : QString();
}

bool writeStatusIcons(const QString &directory, int size) {
    if (!QDir().mkpath(directory)) {
        return false;
    }
    for (const IconState state :
         {IconState::Unknown, IconState::Stopped, IconState::Transition, IconState::Running}) {
        QFile symbolic(directory + u'/' + statusIconName(state, true) + QStringLiteral(".svg"));
        if (!drawStatusIcon(size, state)
                 .save(directory + u'/' + statusIconName(state) + QStringLiteral(".png")) ||
            !symbolic.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
            symbolic.write(symbolicStatusIcon(state)) < 0 || !symbolic.flush()) {
            return false;
        }
    }
    return true;
}
