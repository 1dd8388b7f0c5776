#pragma once

#include <QDialog>
#include <QFrame>

/// Has a button that closes it, and is deleted when it is closed.
class Settings_dialog : public QDialog {
    Q_OBJECT

public:
    explicit Settings_dialog(QWidget& parent);
};

/// A line of advice for as long as the settings are open. It stands in the window, beside the dialog.
class Hint : public QFrame {
    Q_OBJECT

public:
    explicit Hint(QWidget& parent);
};
