#include "StatusIcon.h"

#include <QPainter>
#include <QPen>

#include <algorithm>

QPixmap drawStatusIcon(int size) {
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);

    const qreal rim = std::max(1.0, size / 16.0);
    const QRectF disc = QRectF(0, 0, size, size).adjusted(rim / 2, rim / 2, -rim / 2, -rim / 2);
    painter.setPen(QPen(QColor(0xe8, 0xe8, 0xe8), rim));
    painter.setBrush(QColor(0x26, 0x32, 0x3c));
    painter.drawEllipse(disc);

    // The letter: an open ring, its gap to the right.
    const qreal stroke = std::max(1.5, size / 7.0);
    const qreal inset = size * 0.27;
    const QRectF ring = QRectF(0, 0, size, size).adjusted(inset, inset, -inset, -inset);
    QPen letter(Qt::white, stroke);
    letter.setCapStyle(Qt::FlatCap);
    painter.setPen(letter);
    painter.setBrush(Qt::NoBrush);
    constexpr int gapDegrees = 80;
    painter.drawArc(ring, (gapDegrees / 2) * 16, (360 - gapDegrees) * 16);
    return pixmap;
}

QIcon makeStatusIcon() {
    QIcon icon;
    for (const int size : {16, 22, 24, 32, 48, 64, 128}) {
        icon.addPixmap(drawStatusIcon(size));
    }
    return icon;
}
