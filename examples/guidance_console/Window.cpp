#include "Window.h"

#include "Light_bar.h"
#include "Log_panel.h"
#include "Plan_view.h"
#include "Sky_panel.h"
#include "Status_strip.h"
#include "Theme.h"
#include "Touch_button.h"
#include "Trends.h"
#include "Tuning_panel.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QShortcut>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace {

constexpr qint64 TRENDS_MS = 200;
constexpr int ANSWER_MS = 4000;
constexpr int PAGE_WIDTH = 312;
constexpr int TAB_WIDTH = 62;
constexpr int ACTION_HEIGHT = 62;

constexpr const char* HELP = R"(<table cellpadding='4' cellspacing='2'>
<tr><td><b>A</b>, <b>B</b></td><td>set the line's ends here</td>
<td><b>P I D L M</b></td><td>gain or limit up, with Shift down</td></tr>
<tr><td><b>← →</b></td><td>nudge the line by 5 cm</td>
<td><b>1 2 3 4</b></td><td>trends, satellites, tuning, log</td></tr>
<tr><td><b>Space</b></td><td>start and stop steering</td>
<td><b>+ −</b></td><td>nearer, farther</td></tr>
<tr><td><b>R</b></td><td>reset gains, nudge and track</td>
<td><b>F</b>, <b>U</b></td><td>follow the vehicle, north up</td></tr>
<tr><td><b>N</b></td><td>night and day</td>
<td><b>E</b>, <b>X</b></td><td>log: stay at the end, export</td></tr>
<tr><td><b>H</b></td><td>this help</td><td><b>Ctrl+Q</b></td><td>quit</td></tr></table>)";

} // namespace

Window::Window(Console& shown, const Actions& actions)
    : console(shown), strip(new Status_strip(shown)), bar(new Light_bar(shown)), plan(new Plan_view(shown)),
      pages(new QStackedWidget), trends(new Trends(shown)), sky(new Sky_panel(shown)),
      tuning(new Tuning_panel(shown, actions)), log(new Log_panel(shown, actions)), alarm(new QLabel(plan)),
      answer(new QLabel(plan)), help(new QLabel(this)),
      night(new Touch_button(QString(), Touch_button::Glyph::moon))
{
    setWindowTitle("guidance_console");
    setMinimumSize(800, 480);
    resize(800, 480);
    add_pages();
    add_actions(actions);
    lay_out();

    night->setParent(bar);
    night->setObjectName("night");
    night->setCheckable(true);
    night->set_quiet(true);
    night->set_keys("N", "night and day");
    connect(night, &Touch_button::toggled, this, &Window::set_night);

    alarm->setObjectName("alarm");
    answer->setObjectName("answer");
    for (QLabel* over_plan : {alarm, answer}) {
        over_plan->setFont(ui_font(15, true));
        over_plan->setWordWrap(true);
        over_plan->setAlignment(Qt::AlignCenter);
        over_plan->setAttribute(Qt::WA_TransparentForMouseEvents);
    }
    answer->hide();
    until_read.setSingleShot(true);
    until_read.setInterval(ANSWER_MS);
    connect(&until_read, &QTimer::timeout, answer, &QWidget::hide);
    connect(&console, &Console::answered, this, &Window::show_answer);
    help->setObjectName("help");
    help->setFont(ui_font(14));
    help->setTextFormat(Qt::RichText);
    help->setText(HELP);
    help->setAlignment(Qt::AlignCenter);
    help->hide();

    add_shortcuts();
    connect(new QShortcut(QKeySequence("H"), this), &QShortcut::activated, this, &Window::show_help);
    connect(new QShortcut(QKeySequence("Ctrl+Q"), this), &QShortcut::activated, this, &QWidget::close);
    connect(&console, &Console::epoch_done, this, &Window::advance);
    connect(&console, &Console::changed, this, &Window::show_change);
    connect(&console, &Console::sky_changed, sky, QOverload<>::of(&QWidget::update));
    set_night(theme().night);
    show_page(TRENDS);
    show_change();
}

void Window::add_pages()
{
    const struct {
        QWidget* page;
        const char* name;
        Touch_button::Glyph glyph;
        const char* keys;
        const char* tip;
    } all[] = {{trends, "Trends", Touch_button::Glyph::trends, "1", "the latest minute"},
               {sky, "Sats", Touch_button::Glyph::sky, "2", "satellites and firmware"},
               {tuning, "Tune", Touch_button::Glyph::tune, "3", "gains and limits"},
               {log, "Log", Touch_button::Glyph::log, "4", "what happened"}};
    for (const auto& one : all) {
        const int index = pages->addWidget(one.page);
        auto* tab = new Touch_button(one.name, one.glyph);
        tab->setObjectName(QString("page_%1").arg(index + 1));
        tab->setCheckable(true);
        tab->setAutoExclusive(true);
        tab->set_keys(one.keys, one.tip);
        connect(tab, &Touch_button::clicked, this, [this, index] { show_page(index); });
        tabs.push_back(tab);
    }
}

Touch_button* Window::add_action(const QString& name, const QString& label, const QString& keys,
                                 const QString& tip)
{
    auto* button = new Touch_button(label);
    button->setObjectName(name);
    button->set_keys(keys, tip);
    row.push_back(button);
    return button;
}

void Window::add_actions(const Actions& actions)
{
    connect(add_action("set_a", "Set A", "A", "the line begins here"), &Touch_button::clicked, this,
            [&actions] { actions.set_a(); });
    connect(add_action("set_b", "Set B", "B", "the line ends here"), &Touch_button::clicked, this,
            [&actions] { actions.set_b(); });
    connect(add_action("nudge_left", "◀ 5 cm", "Left", "move the line to the left"), &Touch_button::clicked,
            this, [&actions] { actions.nudge(-Console::NUDGE); });
    connect(add_action("nudge_right", "5 cm ▶", "Right", "move the line to the right"),
            &Touch_button::clicked, this, [&actions] { actions.nudge(Console::NUDGE); });
    connect(add_action("reset", "Reset", "R", "gains as built, line not nudged, track cleared"),
            &Touch_button::clicked, this, [&actions] { actions.reset(); });
    engage = add_action("engage", "START", "Space", "start and stop steering");
    connect(engage, &Touch_button::clicked, this,
            [this, &actions] { actions.engage(!console.moment().engaged); });
}

/// Of the window and not of its buttons, so that they work whatever page is open, and at once.
void Window::add_shortcuts()
{
    for (Touch_button* button : findChildren<Touch_button*>()) {
        if (button->keys().isEmpty())
            continue;
        auto* shortcut = new QShortcut(QKeySequence(button->keys()), this);
        shortcut->setAutoRepeat(button->autoRepeat());
        connect(shortcut, &QShortcut::activated, button, &QAbstractButton::click);
    }
}

void Window::lay_out()
{
    auto* tab_column = new QVBoxLayout;
    tab_column->setSpacing(6);
    for (Touch_button* tab : tabs) {
        tab->setFixedWidth(TAB_WIDTH);
        tab->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Expanding);
        tab_column->addWidget(tab);
    }
    pages->setFixedWidth(PAGE_WIDTH);

    auto* middle = new QHBoxLayout;
    middle->setContentsMargins(8, 0, 8, 0);
    middle->setSpacing(8);
    middle->addWidget(plan, 1);
    middle->addWidget(pages);
    middle->addLayout(tab_column);

    auto* below = new QHBoxLayout;
    below->setContentsMargins(8, 0, 8, 8);
    below->setSpacing(8);
    for (Touch_button* button : row) {
        button->setFixedHeight(ACTION_HEIGHT);
        button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        below->addWidget(button, button == engage ? 2 : 1);
    }

    auto* all = new QVBoxLayout(this);
    all->setContentsMargins(0, 0, 0, 0);
    all->setSpacing(8);
    auto* top = new QVBoxLayout;
    top->setSpacing(0);
    top->addWidget(strip);
    top->addWidget(bar);
    all->addLayout(top);
    all->addLayout(middle, 1);
    all->addLayout(below);
}

Window::Page Window::page() const
{
    return static_cast<Page>(pages->currentIndex());
}

void Window::show_page(int page)
{
    pages->setCurrentIndex(page);
    tabs.at(static_cast<std::size_t>(page))->setChecked(true);
}

void Window::set_night(bool on)
{
    use_theme(on);
    night->setChecked(on);
    trends->apply_theme();
    log->apply_theme();
    QPalette colours = palette();
    colours.setColor(QPalette::ToolTipBase, theme().panel);
    colours.setColor(QPalette::ToolTipText, theme().ink);
    setPalette(colours);
    alarm->setStyleSheet(QString("background:%1;color:%2;border-radius:8px;padding:7px 12px")
                             .arg(theme().fill_bad.name(), theme().on_fill.name()));
    answer->setStyleSheet(
        QString("background:%1;color:%2;border:2px solid %3;border-radius:8px;padding:5px 10px")
            .arg(theme().panel.name(), theme().ink.name(), theme().accent.name()));
    help->setStyleSheet(QString("background:%1;color:%2;border:2px solid %3;border-radius:12px;padding:12px")
                            .arg(theme().panel.name(), theme().ink.name(), theme().accent.name()));
    for (QWidget* widget : findChildren<QWidget*>())
        widget->update();
    update();
}

void Window::advance()
{
    plan->advance();
    bar->update();
    strip->update();
    if (!since_trends.isValid() || since_trends.elapsed() >= TRENDS_MS) {
        trends->advance();
        since_trends.start();
    }
}

void Window::draw_now()
{
    plan->advance();
    trends->advance();
    show_change();
}

void Window::show_change()
{
    const bool engaged = console.moment().engaged;
    engage->setText(engaged ? "STOP" : "START");
    const bool ready = console.moment().has_line && console.moment().has_fix;
    engage->set_role(engaged ? Touch_button::Role::stop
                     : ready ? Touch_button::Role::go
                             : Touch_button::Role::plain);
    tuning->update();
    sky->update();
    plan->update();
    bar->update();
    strip->update();
    show_alarm();
}

void Window::show_alarm()
{
    const QString text = console.alarm();
    alarm->setVisible(!text.isEmpty());
    alarm->setText(text);
    const int wide = plan->width() - 80;
    alarm->setGeometry(10, 10, wide, alarm->heightForWidth(wide));
}

void Window::show_answer(const QString& message)
{
    answer->setText(message.left(1).toUpper() + message.mid(1));
    const int wide = plan->width() - 80;
    const int tall = answer->heightForWidth(wide);
    answer->setGeometry(10, plan->height() - 10 - tall, wide, tall);
    answer->show();
    until_read.start();
}

void Window::show_help()
{
    help->setVisible(!help->isVisible());
    help->adjustSize();
    help->move((width() - help->width()) / 2, (height() - help->height()) / 2);
    help->raise();
}

void Window::paintEvent(QPaintEvent* /*event*/)
{
    QPainter(this).fillRect(rect(), theme().window);
}

void Window::resizeEvent(QResizeEvent* /*event*/)
{
    night->setGeometry(width() - 8 - Light_bar::NIGHT_WIDTH, Light_bar::HEIGHT - 64, Light_bar::NIGHT_WIDTH,
                       52);
    show_alarm();
}
