#include "Main_window.h"

#include "Settings_dialog.h"

#include "util/qt/QWidget_global_instance_tracker.h"

#include <QPushButton>
#include <QVBoxLayout>

Main_window::Main_window(bool is_mended) : mended(is_mended), dialogs("Dialogs: ")
{
    setCentralWidget(new QWidget);
    auto* const button = new QPushButton("Settings ...");
    button->setObjectName("open");
    auto* const layout = new QVBoxLayout(centralWidget());
    layout->addWidget(button);
    connect(button, &QPushButton::clicked, this, &Main_window::open_settings);
}

void Main_window::open_settings()
{
    auto* const dialog = new Settings_dialog(*this);
    dialogs.construct(dialog, "the button was clicked", true);

    // Whatever widget is made from here on is to be gone a moment after the dialog is.
    auto* const census = new QWidget_global_instance_tracker(dialog);
    connect(census, &QObject::destroyed, this, &Main_window::counted);

    // The leak: it is the window's child, not the dialog's.
    auto* const hint = new Hint(*centralWidget());
    centralWidget()->layout()->addWidget(hint);
    if (mended)
        connect(dialog, &QObject::destroyed, hint, &QObject::deleteLater);
    dialogs.construct(hint, "for the settings", true);

    dialog->show();
}
