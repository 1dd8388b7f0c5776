#pragma once

#include "Console.h"

#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

class Light_bar;
class Log_panel;
class Plan_view;
class QLabel;
class QStackedWidget;
class Sky_panel;
class Status_strip;
class Touch_button;
class Trends;
class Tuning_panel;

/// The screen: a light bar over the plan and one of four pages, with the actions below.
class Window : public QWidget {
    Q_OBJECT

public:
    enum Page { TRENDS, SKY, TUNE, LOG };

    Window(Console& shown, const Actions& actions);

    Page page() const;

public slots: // NOLINT(readability-redundant-access-specifiers): the word is moc's
    void show_page(int page);
    void set_night(bool on);

    /// Draws everything as of now, also what is usually drawn less often than the epochs come.
    void draw_now();

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void add_pages();
    void add_actions(const Actions& actions);
    void add_shortcuts();
    Touch_button* add_action(const QString& name, const QString& label, const QString& keys,
                             const QString& tip);
    void lay_out();
    void advance();
    void show_change();
    void show_alarm();
    void show_answer(const QString& message);
    void show_help();

    Console& console;
    Status_strip* strip;
    Light_bar* bar;
    Plan_view* plan;
    QStackedWidget* pages;
    Trends* trends;
    Sky_panel* sky;
    Tuning_panel* tuning;
    Log_panel* log;
    QLabel* alarm;
    QLabel* answer; ///< to what was pressed last, for a while
    QTimer until_read;
    QLabel* help;
    Touch_button* night;
    Touch_button* engage;
    std::vector<Touch_button*> tabs;
    std::vector<Touch_button*> row; ///< of actions
    QElapsedTimer since_trends;
};
