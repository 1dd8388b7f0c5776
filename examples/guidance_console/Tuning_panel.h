#pragma once

#include "Console.h"

#include <QWidget>

class Touch_button;

/// The controller's gains and limits, each with a button down and one up.
class Tuning_panel : public QWidget {
    Q_OBJECT

public:
    Tuning_panel(const Console& shown, const Actions& raised);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    struct Row {
        Touch_button* down;
        Touch_button* up;
    };
    void change(std::size_t row, double steps);

    const Console& console;
    const Actions& actions;
    std::vector<Row> rows;
};
