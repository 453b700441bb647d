#include "MessageBoxPrompt.h"

#include "StatusIcon.h"
#include "WindowActivation.h"

#include <QApplication>
#include <QFontMetricsF>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include <cmath>

namespace {

// The informative text is a sentence, a line feed and a path. Qt sizes the
// box for its short question and wraps the rest at that width; the label is
// widened so that the sentence keeps to one line in whatever language, and
// only the path is left to wrap, within its own line.
void keepFirstLineWhole(QLabel &label) {
    const QString firstLine = label.text().section(QLatin1Char('\n'), 0, 0);
    // A space's width of slack: the layout adds up fractional advances that
    // the integer metrics round away.
    const QFontMetricsF metrics(label.font());
    const int width = int(std::ceil(metrics.horizontalAdvance(firstLine) +
                                    metrics.horizontalAdvance(QLatin1Char(' '))));
    label.setMinimumWidth(width + label.contentsMargins().left() + label.contentsMargins().right());
}

}  // namespace

QString MessageBoxPrompt::title() {
    return tr("Corvanta Monitor");
}

bool MessageBoxPrompt::confirm(const QString &message, const QString &informative,
                               const QString &confirmButton, const QString &cancelButton) {
    QMessageBox box;
    box.setWindowTitle(title());
    box.setWindowIcon(makeStatusIcon());
    box.setText(message);
    box.setInformativeText(informative);
    // Paths and names are shown as they are, never as markup.
    box.setTextFormat(Qt::PlainText);
    if (auto *label = box.findChild<QLabel *>(QStringLiteral("qt_msgbox_informativelabel"))) {
        label->setTextFormat(Qt::PlainText);
        keepFirstLineWhole(*label);
    }
    QPushButton *yes = box.addButton(confirmButton, QMessageBox::AcceptRole);
    QPushButton *no = box.addButton(cancelButton, QMessageBox::RejectRole);
    box.setDefaultButton(yes);
    box.setEscapeButton(no);
    // Last: adding a button or setting the modality resets the window flags.
    box.setWindowModality(Qt::ApplicationModal);
    box.setWindowFlag(Qt::WindowStaysOnTopHint);
    // The program has no window of its own to come from, so the box asks to
    // be put in front once it is mapped.
    QTimer::singleShot(0, &box, [&box] { WindowActivation::activate(box); });
    box.exec();
    return box.clickedButton() == yes;
}
