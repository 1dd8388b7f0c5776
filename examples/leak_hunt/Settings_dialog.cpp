#include "Settings_dialog.h"

#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

Settings_dialog::Settings_dialog(QWidget& parent) : QDialog(&parent)
{
    setAttribute(Qt::WA_DeleteOnClose);
    auto* const button = new QPushButton("Close");
    button->setObjectName("close");
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(new QCheckBox("Steer backwards too"));
    layout->addWidget(button);
    connect(button, &QPushButton::clicked, this, &QDialog::close);
}

Hint::Hint(QWidget& parent) : QFrame(&parent)
{
    setFrameShape(StyledPanel);
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel("Settings hold from the next line on."));
}
