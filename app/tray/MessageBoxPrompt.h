#pragma once

#include "app/platform/PlatformServices.h"

#include <QCoreApplication>

// The confirmation as a modal message box above every other window: message,
// informative text, the confirming button (the default) and the cancelling
// one (also what Escape and closing the window choose).
class MessageBoxPrompt : public ConfirmationPrompt {
    Q_DECLARE_TR_FUNCTIONS(MessageBoxPrompt)

public:
    // The window title: the program's display name.
    static QString title();

    bool confirm(const QString &message, const QString &informative, const QString &confirmButton,
                 const QString &cancelButton) override;
};
