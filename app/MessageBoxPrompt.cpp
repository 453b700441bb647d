#include "MessageBoxPrompt.h"

#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

int MessageBoxPrompt::runModal(const QString &message, const QString &informative,
                               const QString &firstButton, const QString &secondButton) {
    QMessageBox box;
    box.setText(message);
    box.setInformativeText(informative);
    // Paths and names are shown as they are, never as markup.
    box.setTextFormat(Qt::PlainText);
    if (auto *label = box.findChild<QLabel *>(QStringLiteral("qt_msgbox_informativelabel"))) {
        label->setTextFormat(Qt::PlainText);
    }
    QPushButton *first = box.addButton(firstButton, QMessageBox::AcceptRole);
    QPushButton *second = box.addButton(secondButton, QMessageBox::RejectRole);
    box.setDefaultButton(first);
    box.setEscapeButton(second);
    // Last: adding a button or setting the modality resets the window flags.
    box.setWindowModality(Qt::ApplicationModal);
    box.setWindowFlag(Qt::WindowStaysOnTopHint);
    // The program has no window of its own to come from, so the box asks to
    // be put in front once it is mapped.
    QTimer::singleShot(0, &box, [&box] {
        box.raise();
        box.activateWindow();
    });
    box.exec();
    if (box.clickedButton() == first) {
        return AlertFirstButtonReturn;
    }
    return AlertSecondButtonReturn;
}
