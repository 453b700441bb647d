#pragma once

#include "app/platform/PlatformServices.h"

#include <QCoreApplication>

// The confirmation as a modal message box above every other window: message,
// informative text, the first button (accepting, the default) and the second
// (rejecting, also what Escape and closing the window choose).
class MessageBoxPrompt : public ConfirmationPrompt {
    Q_DECLARE_TR_FUNCTIONS(MessageBoxPrompt)

public:
    // The window title: the program's display name.
    static QString title();

    int runModal(const QString &message, const QString &informative, const QString &firstButton,
                 const QString &secondButton) override;
};

constexpr int AlertSecondButtonReturn = 1001;
