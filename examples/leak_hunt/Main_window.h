#pragma once

#include "util/qt/QObject_instance_tracker.h"

#include <QMainWindow>

/// A window with a button that opens the settings, and room for what they leave behind.
class Main_window : public QMainWindow {
    Q_OBJECT

public:
    /// @param mended  whether its settings clean up behind themselves
    explicit Main_window(bool mended);

signals:
    /// A closed dialog's widgets were counted.
    void counted();

private:
    void open_settings();

    bool mended;
    /// Goes before the window's children do, so that its last report tells those that are left.
    QObject_instance_tracker dialogs;
};
