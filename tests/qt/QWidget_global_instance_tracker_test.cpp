#include "util/qt/QWidget_global_instance_tracker.h"

#include "tests/support/High_place.h"

#include <QApplication>
#include <QDialog>
#include <QElapsedTimer>
#include <QEvent>
#include <QFrame>
#include <QGroupBox>
#include <QLabel>
#include <QMainWindow>
#include <QMetaMethod>
#include <QPointer>
#include <QPushButton>
#include <QTest>
#include <QTextCodec>
#include <QTimer>
#include <QVBoxLayout>

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <sstream>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>
#include <vector>

using Tracker = QWidget_global_instance_tracker;
using Widgets = QSet<QWidget*>;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

static_assert(std::is_base_of_v<QObject, Tracker>);

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace {

/// What a function writes to standard output.
template <typename FUNCTION>
std::string printed(FUNCTION function)
{
    testing::internal::CaptureStdout();
    function();
    return testing::internal::GetCapturedStdout();
}

/// By the C library; 32-bit addresses with their sign extended.
std::string address(const void* object)
{
    std::array<char, 30> text{};
    const std::int64_t number = reinterpret_cast<std::intptr_t>(object);
    std::snprintf(text.data(), text.size(), "%" PRIu64, static_cast<std::uint64_t>(number));
    return text.data();
}

std::string class_of(const QObject* object)
{
    return object == nullptr ? "Null" : object->metaObject()->className();
}

std::string line(int depth, const QWidget* widget)
{
    return std::string(static_cast<std::size_t>(4 * depth), ' ') + class_of(widget) + ":" + address(widget) +
           ":" + class_of(widget->parent()) + "\n";
}

std::string header(const void* watched, const std::string& class_name, std::size_t total)
{
    return "Widget track " + address(watched) + " " + class_name + " total=" + std::to_string(total) +
           " objs={\n";
}

std::string tree(QWidget* widget, int depth, Widgets& widgets)
{
    QString out;
    print_tree(widget, out, depth, widgets);
    return out.toStdString();
}

/// Sees every event of the application: what the trackers go through, and the timers that they leave behind.
class Watcher : public QObject {
public:
    Watcher() { qApp->installEventFilter(this); }
    ~Watcher() override
    {
        qApp->removeEventFilter(this);
        for (const auto& each : timers)
            delete each;
    }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    bool eventFilter(QObject* receiver, QEvent* event) override
    {
        if (auto* const tracker = dynamic_cast<Tracker*>(receiver); tracker != nullptr) {
            if (event->type() == QEvent::MetaCall)
                steps.emplace_back("slot");
            if (event->type() == QEvent::DeferredDelete)
                steps.emplace_back("deletion");
        }
        auto* const timer = qobject_cast<QTimer*>(receiver);
        if (timer != nullptr && event->type() == QEvent::Timer && timer->parent() == nullptr &&
            timer->interval() >= 10 && !timer->isSingleShot()) {
            on_timer(timer);
            ++timeouts;
            if (std::find(timers.begin(), timers.end(), timer) == timers.end()) {
                timers.emplace_back(timer);
                steps.emplace_back("timer"); // but once: on a busy machine it may fire again
            }
        }
        return false;
    }

    std::vector<std::string> steps;
    std::vector<QPointer<QTimer>> timers;
    int timeouts = 0;
    std::function<void(QTimer*)> on_timer = [](QTimer*) {}; ///< called before the timer's own slots
};

template <typename CONDITION>
bool run_until(CONDITION condition)
{
    return QTest::qWaitFor(condition, 60000);
}

/// What is printed until the tracker is gone.
std::string report_of(const QPointer<Tracker>& tracker)
{
    return printed([&tracker] { EXPECT_TRUE(run_until([&tracker] { return tracker.isNull(); })); });
}

/// An application on a platform. What the platforms make up for themselves they never give back: the leak
/// checker passes over that.
std::unique_ptr<QApplication> application_on(const char* platform)
{
    static int count = 1;
    static std::array<char, 5> name{"test"};
    static std::array<char*, 2> arguments{name.data(), nullptr};
    qputenv("QT_QPA_PLATFORM", platform);
#ifdef __SANITIZE_ADDRESS__
    const __lsan::ScopedDisabler disabler;
#endif
    return std::make_unique<QApplication>(count, arguments.data());
}

class Widget_census : public testing::Test {
protected:
    static void SetUpTestSuite() { application = application_on("offscreen").release(); }
    static void TearDownTestSuite() { delete application; }

    QObject watched;

private:
    static QApplication* application;
};
QApplication* Widget_census::application = nullptr;

} // namespace

TEST_F(Widget_census, goes_by_its_name_among_Qts_objects_and_has_two_slots_in_order)
{
    const QMetaObject& meta = Tracker::staticMetaObject;
    EXPECT_STREQ("QWidget_global_instance_tracker", meta.className());
    EXPECT_STREQ("QObject", meta.superClass()->className());
    EXPECT_EQ(0, meta.propertyCount() - meta.propertyOffset());
    std::vector<std::string> slots_;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        EXPECT_EQ(QMetaMethod::Slot, meta.method(i).methodType());
        EXPECT_EQ(QMetaMethod::Public, meta.method(i).access());
        slots_.push_back(meta.method(i).methodSignature().toStdString());
    }
    EXPECT_THAT(slots_, ElementsAre("do_print_and_delete()", "do_wait_before_print_and_delete()"));
}

TEST_F(Widget_census, has_no_parent_and_leaves_the_watched_object_alone)
{
    const Tracker tracker(&watched);
    EXPECT_EQ(nullptr, tracker.parent());
    EXPECT_TRUE(watched.children().isEmpty());
}

// The printer.

TEST_F(Widget_census, prints_a_line_for_a_widget_and_an_indented_one_for_its_child)
{
    QDialog dialog;
    QPushButton button(&dialog);
    Widgets both{&dialog, &button};
    EXPECT_EQ("QDialog:" + address(&dialog) + ":Null\n" + "    QPushButton:" + address(&button) +
                  ":QDialog\n",
              tree(nullptr, 0, both));
    EXPECT_TRUE(both.isEmpty());
}

TEST_F(Widget_census, prints_a_child_once_and_under_its_parent_whichever_comes_first)
{
    std::map<bool, int> child_first;
    std::vector<std::unique_ptr<QDialog>> dialogs;
    for (int i = 0; i < 200; ++i) {
        dialogs.push_back(std::make_unique<QDialog>());
        auto* const button = new QPushButton(dialogs.back().get());
        Widgets both{dialogs.back().get(), button};
        ++child_first[*both.begin() == button];
        ASSERT_EQ(line(0, dialogs.back().get()) + line(1, button), tree(nullptr, 0, both));
    }
    EXPECT_EQ(2U, child_first.size());
}

TEST_F(Widget_census, starts_from_depth_0_when_it_is_given_no_widget)
{
    QFrame frame;
    QLabel label(&frame);
    for (const int depth : {0, 1, 7}) {
        Widgets both{&frame, &label};
        EXPECT_EQ(line(0, &frame) + line(1, &label), tree(nullptr, depth, both));
    }
}

TEST_F(Widget_census, starts_from_the_depth_given_with_a_widget)
{
    QFrame frame;
    QLabel label(&frame);
    for (const int depth : {0, 1, 7}) {
        Widgets both{&frame, &label};
        EXPECT_EQ(line(depth, &frame) + line(depth + 1, &label), tree(&frame, depth, both));
        EXPECT_TRUE(both.isEmpty());
    }
}

TEST_F(Widget_census, starts_from_the_topmost_parent_in_the_set_and_from_depth_0_then)
{
    QFrame top;
    QFrame middle(&top);
    QFrame bottom(&middle);
    Widgets all{&top, &middle, &bottom};
    EXPECT_EQ(line(0, &top) + line(1, &middle) + line(2, &bottom), tree(&bottom, 5, all));
    EXPECT_TRUE(all.isEmpty());
    Widgets two{&middle, &bottom};
    EXPECT_EQ(line(0, &middle) + line(1, &bottom), tree(&bottom, 5, two));
    Widgets outer{&top, &bottom}; // the way up ends at what is not in the set
    EXPECT_EQ(line(5, &bottom), tree(&bottom, 5, outer));
    EXPECT_EQ(Widgets{&top}, outer);
    EXPECT_EQ(line(0, &top), tree(&middle, 5, outer)); // from one that is not in the set itself
}

TEST_F(Widget_census, passes_over_what_is_not_in_the_set_and_keeps_the_depth_below_it)
{
    QFrame top;
    QGroupBox middle(&top);
    QLabel bottom(&middle);
    Widgets outer{&top, &bottom};
    EXPECT_EQ(line(0, &top) + line(2, &bottom), tree(&top, 0, outer));
    Widgets lowest{&bottom};
    EXPECT_EQ(line(5, &bottom), tree(&top, 3, lowest));
    Widgets nothing;
    EXPECT_EQ("", tree(&top, 0, nothing));
    EXPECT_EQ("", tree(nullptr, 0, nothing));
}

TEST_F(Widget_census, leaves_in_the_set_what_is_not_below_the_widget)
{
    QFrame one;
    QFrame other;
    Widgets both{&one, &other};
    EXPECT_EQ(line(0, &one), tree(&one, 0, both));
    EXPECT_EQ(Widgets{&other}, both);
}

TEST_F(Widget_census, appends_to_the_text)
{
    QFrame frame;
    Widgets one{&frame};
    QString out = "before\n";
    print_tree(&frame, out, 0, one);
    EXPECT_EQ("before\n" + line(0, &frame), out.toStdString());
}

TEST_F(Widget_census, goes_through_children_in_their_order_and_past_what_is_no_widget)
{
    QFrame frame;
    QLabel first(&frame);
    QTimer timer(&frame);
    QVBoxLayout layout(&frame);
    QPushButton second(&frame);
    QLabel third(&frame);
    const Widgets all{&frame, &first, &second, &third};
    Widgets widgets = all;
    EXPECT_EQ(line(0, &frame) + line(1, &first) + line(1, &second) + line(1, &third),
              tree(&frame, 0, widgets));
    first.raise(); // the last of the children from now on
    widgets = all;
    EXPECT_EQ(line(0, &frame) + line(1, &second) + line(1, &third) + line(1, &first),
              tree(&frame, 0, widgets));
}

/// The lines of what is below a widget and in the set, from the widget downwards.
std::string lines_below(QWidget* widget, int depth, Widgets& left)
{
    std::string all = left.remove(widget) ? line(depth, widget) : "";
    for (QObject* const child : widget->children())
        all += lines_below(static_cast<QWidget*>(child), depth + 1, left);
    return all;
}

TEST_F(Widget_census, prints_random_sets_of_random_trees_in_blocks_that_start_at_a_root)
{
    const unsigned seed = 62;
    std::mt19937 random(seed);
    for (int run = 0; run < 2000; ++run) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", run " << run);
        std::vector<QWidget*> all;
        std::map<std::string, QWidget*> by_address;
        Widgets chosen;
        const auto count = 1 + random() % 12;
        for (std::size_t i = 0; i < count; ++i) {
            QWidget* const parent = all.empty() || random() % 5 == 0 ? nullptr : all[random() % all.size()];
            all.push_back(random() % 2 == 0 ? new QWidget(parent) : new QFrame(parent));
            by_address[address(all.back())] = all.back();
            if (random() % 3 != 0)
                chosen.insert(all.back());
        }
        Widgets widgets = chosen;
        Widgets left = chosen;
        std::string text = tree(nullptr, 1, widgets);
        EXPECT_TRUE(widgets.isEmpty());
        while (!left.isEmpty()) { // which root comes next is the set's affair
            const std::size_t from = text.find(':') + 1;
            QWidget* const root = by_address[text.substr(from, text.find(':', from) - from)];
            ASSERT_TRUE(left.contains(root)) << text;
            ASSERT_FALSE(chosen.contains(root->parentWidget())) << text;
            const std::string block = lines_below(root, 0, left);
            ASSERT_EQ(block, text.substr(0, block.size()));
            text.erase(0, block.size());
        }
        ASSERT_EQ("", text);
        all.erase(
            std::remove_if(all.begin(), all.end(), [](QWidget* each) { return each->parent() != nullptr; }),
            all.end());
        qDeleteAll(all); // and what is below them
    }
}

// The tracker.

TEST_F(Widget_census, prints_the_frame_of_a_report_only_when_nothing_is_new)
{
    QFrame there;
    Tracker tracker(&watched);
    EXPECT_EQ(header(&watched, "QObject", 0) + "}\n", printed([&] { tracker.print_diff(); }));
    EXPECT_EQ(header(&watched, "QObject", 0) + "}\n", tracker.to_string({}).toStdString());
}

TEST_F(Widget_census, prints_what_was_made_since_the_snapshot)
{
    QFrame there;
    QLabel child_that_was_there(&there);
    Tracker tracker(&watched);
    QLabel made(&there); // of a parent that was there: no line for that, and depth 0
    QPushButton below(&made);
    EXPECT_EQ(header(&watched, "QObject", 2) + "QLabel:" + address(&made) + ":QFrame\n" +
                  "    QPushButton:" + address(&below) + ":QLabel\n}\n",
              printed([&] { tracker.print_diff(); }));
}

TEST_F(Widget_census, prints_nothing_of_what_was_made_and_is_gone)
{
    Tracker tracker(&watched);
    auto frame = std::make_unique<QFrame>();
    EXPECT_EQ(header(&watched, "QObject", 1) + line(0, frame.get()) + "}\n",
              printed([&] { tracker.print_diff(); }));
    frame.reset();
    EXPECT_EQ(header(&watched, "QObject", 0) + "}\n", printed([&] { tracker.print_diff(); }));
}

TEST_F(Widget_census, takes_a_new_snapshot_on_reset)
{
    Tracker tracker(&watched);
    QFrame first;
    tracker.reset();
    EXPECT_EQ(header(&watched, "QObject", 0) + "}\n", printed([&] { tracker.print_diff(); }));
    QLabel second;
    EXPECT_EQ(header(&watched, "QObject", 1) + line(0, &second) + "}\n",
              printed([&] { tracker.print_diff(); }));
}

TEST_F(Widget_census, takes_a_widget_in_the_place_of_another_for_that)
{
    alignas(QFrame) std::array<std::byte, sizeof(QFrame)> place;
    auto* frame = new (place.data()) QFrame;
    Tracker tracker(&watched);
    frame->~QFrame();
    frame = new (place.data()) QFrame;
    EXPECT_EQ(header(&watched, "QObject", 0) + "}\n", printed([&] { tracker.print_diff(); }));
    frame->~QFrame();
}

TEST_F(Widget_census, reports_any_set_and_leaves_it_as_it_is)
{
    QFrame frame;
    QLabel label(&frame);
    Tracker tracker(&watched);
    const Widgets both{&frame, &label};
    const std::string report = header(&watched, "QObject", 2) + line(0, &frame) + line(1, &label) + "}\n";
    EXPECT_EQ(report, tracker.to_string(both).toStdString());
    EXPECT_EQ(report, printed([&] { tracker.print(both); }));
    EXPECT_EQ(2, both.size());
}

TEST_F(Widget_census, calls_the_watched_object_by_the_class_that_it_had)
{
    auto dialog = std::make_unique<QDialog>();
    const void* const where = dialog.get();
    Tracker tracker(dialog.get());
    EXPECT_EQ(header(where, "QDialog", 0) + "}\n", tracker.to_string({}).toStdString());
    dialog.reset();
    EXPECT_EQ(header(where, "QDialog", 0) + "}\n", tracker.to_string({}).toStdString());
}

namespace {

/// A widget of any class name.
class Odd_widget : public QWidget {
public:
    using QWidget::QWidget;
    const QMetaObject* metaObject() const override
    {
        // As moc writes it for a class without members of its own.
        static const struct {
            QByteArrayData name;
            char text[20];
        } strings = {Q_STATIC_BYTE_ARRAY_DATA_HEADER_INITIALIZER_WITH_OFFSET(11, sizeof(QByteArrayData)),
                     "\xC3\xB6%4 %s %1"};
        static const std::array<uint, 15> content = {8};
        static const QMetaObject meta = {
            {&QWidget::staticMetaObject, &strings.name, content.data(), nullptr, nullptr, nullptr}};
        return &meta;
    }
};

} // namespace

TEST_F(Widget_census, prints_class_names_as_they_are_in_the_local_encoding)
{
    Odd_widget widget;
    ASSERT_STREQ("\xC3\xB6%4 %s %1", widget.metaObject()->className());
    Tracker tracker(&widget);
    QLabel label(&widget);
    QTextCodec* const before = QTextCodec::codecForLocale();
    for (const auto& [codec, name] :
         {std::pair("UTF-8", "\xC3\xB6%4 %s %1"), {"ISO 8859-1", "\xF6%4 %s %1"}}) {
        QTextCodec::setCodecForLocale(QTextCodec::codecForName(codec));
        EXPECT_EQ(header(&widget, name, 1) + "QLabel:" + address(&label) + ":" + name + "\n}\n",
                  printed([&] { tracker.print_diff(); }));
    }
    QTextCodec::setCodecForLocale(before);
}

TEST_F(Widget_census, prints_high_addresses_unsigned_and_those_of_32_bits_with_their_sign_extended)
{
    const High_place object_place;
    const High_place widget_place;
    auto* const object = new (object_place.get()) QObject;
    Tracker tracker(object);
    auto* const widget = new (widget_place.get()) QFrame;
    const std::string report = printed([&] { tracker.print_diff(); });
    EXPECT_EQ(header(object, "QObject", 1) + line(0, widget) + "}\n", report);
    const auto of_object = reinterpret_cast<std::uintptr_t>(object);
    std::ostringstream number;
    number << (sizeof(void*) == 4 ? of_object + std::uint64_t{0xFFFFFFFF00000000} : std::uint64_t{of_object});
    EXPECT_THAT(report, testing::StartsWith("Widget track " + number.str() + " QObject"));
    EXPECT_EQ(sizeof(void*) == 4, number.str().size() == 20);
    widget->~QFrame();
    object->~QObject();
}

// The tracker's life.

TEST_F(Widget_census, is_connected_to_the_end_of_the_watched_object_by_name)
{
    const auto tracker = std::make_unique<Tracker>(&watched);
    EXPECT_TRUE(QObject::disconnect(&watched, "2destroyed(QObject*)", tracker.get(),
                                    "1do_wait_before_print_and_delete()"));
    EXPECT_FALSE(QObject::disconnect(&watched, nullptr, tracker.get(), nullptr));
}

TEST_F(Widget_census, goes_through_the_event_queue_to_the_timer_and_from_there_to_its_end)
{
    Watcher watcher;
    auto object = std::make_unique<QObject>();
    const QPointer<Tracker> tracker = new Tracker(object.get());
    const std::string expected = header(object.get(), "QObject", 0) + "}\n";
    QElapsedTimer clock;
    clock.start();
    EXPECT_EQ("", printed([&] { object.reset(); }));
    EXPECT_EQ(expected, report_of(tracker));
    EXPECT_LE(90, clock.elapsed()); // Qt's timers may be a twentieth early
    EXPECT_THAT(watcher.steps, ElementsAre("slot", "timer", "slot", "deletion"));
}

TEST_F(Widget_census, leaves_its_timer_running_without_effect)
{
    Watcher watcher;
    auto object = std::make_unique<QObject>();
    const QPointer<Tracker> tracker = new Tracker(object.get());
    object.reset();
    report_of(tracker);
    EXPECT_EQ("", printed([&] { EXPECT_TRUE(run_until([&] { return watcher.timeouts >= 3; })); }));
    ASSERT_EQ(1U, watcher.timers.size());
    const QTimer* const timer = watcher.timers[0];
    ASSERT_NE(nullptr, timer);
    EXPECT_EQ(100, timer->interval());
    EXPECT_TRUE(timer->isActive());
    EXPECT_FALSE(timer->isSingleShot());
    EXPECT_EQ(Qt::CoarseTimer, timer->timerType());
    EXPECT_EQ(nullptr, timer->parent());
}

TEST_F(Widget_census, has_its_timer_connected_by_name)
{
    Watcher watcher;
    const QPointer<Tracker> tracker = new Tracker(&watched);
    bool connected = false;
    watcher.on_timer = [&](QTimer* timer) {
        connected = connected || QObject::disconnect(timer, "2timeout()", tracker, "1do_print_and_delete()");
    };
    tracker->do_wait_before_print_and_delete();
    EXPECT_EQ("", printed([&] { EXPECT_TRUE(run_until([&] { return watcher.timeouts >= 2; })); }));
    EXPECT_TRUE(connected);
    EXPECT_FALSE(tracker.isNull());
    delete tracker;
}

TEST_F(Widget_census, prints_and_deletes_itself_when_told)
{
    Watcher watcher;
    QPointer<Tracker> tracker = new Tracker(&watched);
    EXPECT_EQ(header(&watched, "QObject", 0) + "}\n", printed([&] { tracker->do_print_and_delete(); }));
    ASSERT_FALSE(tracker.isNull()); // left to the event loop
    EXPECT_EQ("", report_of(tracker));
    tracker = new Tracker(&watched);
    EXPECT_EQ(header(&watched, "QObject", 0) + "}\n",
              printed([&] { EXPECT_TRUE(QMetaObject::invokeMethod(tracker, "do_print_and_delete")); }));
    EXPECT_EQ("", report_of(tracker));
    EXPECT_THAT(watcher.steps, ElementsAre("deletion", "deletion"));
}

TEST_F(Widget_census, waits_prints_and_deletes_itself_when_told_to_wait)
{
    Watcher watcher;
    const QPointer<Tracker> tracker = new Tracker(&watched);
    EXPECT_EQ("", printed([&] {
                  EXPECT_TRUE(QMetaObject::invokeMethod(tracker, "do_wait_before_print_and_delete"));
              }));
    EXPECT_EQ(header(&watched, "QObject", 0) + "}\n", report_of(tracker));
    EXPECT_THAT(watcher.steps, ElementsAre("timer", "slot", "deletion"));
}

TEST_F(Widget_census, stays_silent_while_the_watched_object_lives)
{
    Watcher watcher;
    const QPointer<Tracker> tracker = new Tracker(&watched);
    QFrame frame;
    EXPECT_EQ("", printed([] { QTest::qWait(250); }));
    EXPECT_FALSE(tracker.isNull());
    EXPECT_THAT(watcher.steps, testing::IsEmpty());
    delete tracker;
}

TEST_F(Widget_census, says_nothing_when_it_goes_before_the_watched_object)
{
    auto object = std::make_unique<QObject>();
    auto tracker = std::make_unique<Tracker>(object.get());
    EXPECT_EQ("", printed([&] {
                  tracker.reset();
                  object.reset();
                  QTest::qWait(0);
              }));
}

TEST_F(Widget_census, reports_from_each_of_two_trackers)
{
    Watcher watcher;
    auto object = std::make_unique<QObject>();
    const QPointer<Tracker> before = new Tracker(object.get());
    QFrame frame;
    const QPointer<Tracker> after = new Tracker(object.get());
    const std::string full = header(object.get(), "QObject", 1) + line(0, &frame) + "}\n";
    const std::string empty = header(object.get(), "QObject", 0) + "}\n";
    object.reset();
    const std::string reports =
        printed([&] { EXPECT_TRUE(run_until([&] { return before.isNull() && after.isNull(); })); });
    EXPECT_EQ(full + empty, reports);
    EXPECT_EQ(2U, watcher.timers.size());
}

// Dialogs of an application.

TEST_F(Widget_census, finds_what_a_dialog_leaves_in_the_window)
{
    Watcher watcher;
    QMainWindow window;
    auto* const dialog = new QDialog(&window);
    const QPointer<Tracker> tracker = new Tracker(dialog);
    const std::string where = address(dialog);
    new QLabel("its own", dialog);
    auto* const panel = new QFrame(&window); // should have been the dialog's
    auto* const label = new QLabel("left behind", panel);
    delete dialog;
    EXPECT_EQ("Widget track " + where + " QDialog total=2 objs={\n" + "QFrame:" + address(panel) +
                  ":QMainWindow\n" + "    QLabel:" + address(label) + ":QFrame\n}\n",
              report_of(tracker));
}

TEST_F(Widget_census, finds_what_was_moved_out_of_a_dialog_under_its_new_parent)
{
    Watcher watcher;
    QMainWindow window;
    auto* const dialog = new QDialog(&window);
    const QPointer<Tracker> tracker = new Tracker(dialog);
    const std::string head = header(dialog, "QDialog", 3);
    auto* const group = new QGroupBox(dialog);
    auto* const button = new QPushButton(group);
    auto* const label = new QLabel(group);
    auto* const orphan = new QLabel(dialog);
    group->setParent(&window);
    label->setParent(button);
    Q_UNUSED(orphan) // goes with the dialog
    delete dialog;
    EXPECT_EQ(head + "QGroupBox:" + address(group) + ":QMainWindow\n    QPushButton:" + address(button) +
                  ":QGroupBox\n        QLabel:" + address(label) + ":QPushButton\n}\n",
              report_of(tracker));
}

TEST_F(Widget_census, finds_what_was_there_only_by_what_is_new_in_it)
{
    Watcher watcher;
    QMainWindow window;
    auto* const there = new QGroupBox(&window);
    auto* const dialog = new QDialog(&window);
    const QPointer<Tracker> tracker = new Tracker(dialog);
    const std::string head = header(dialog, "QDialog", 1);
    auto* const label = new QLabel(there);
    auto* const taken_out = new QFrame(dialog);
    there->setParent(taken_out); // deleted with the dialog, with all that is in it
    there->setParent(&window);
    delete dialog;
    EXPECT_EQ(head + "QLabel:" + address(label) + ":QGroupBox\n}\n", report_of(tracker));
}

TEST_F(Widget_census, gives_widgets_the_time_to_be_deleted_later)
{
    Watcher watcher;
    QMainWindow window;
    auto* const dialog = new QDialog(&window);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    const QPointer<Tracker> tracker = new Tracker(dialog);
    const std::string head = header(dialog, "QDialog", 1);
    auto* const at_once = new QFrame(&window);
    auto* const soon = new QFrame(&window);
    auto* const much_later = new QLabel(&window);
    QObject::connect(dialog, &QObject::destroyed, at_once, &QObject::deleteLater);
    QObject::connect(dialog, &QObject::destroyed, soon,
                     [soon] { QTimer::singleShot(40, soon, &QObject::deleteLater); });
    QObject::connect(dialog, &QObject::destroyed, much_later,
                     [much_later] { QTimer::singleShot(120000, much_later, &QObject::deleteLater); });
    dialog->show();
    dialog->close(); // deletes it from the event loop
    EXPECT_EQ(head + line(0, much_later) + "}\n", report_of(tracker));
}

TEST_F(Widget_census, reports_a_dialog_that_is_run_and_closed)
{
    Watcher watcher;
    QMainWindow window;
    window.show();
    QApplication::desktop(); // a widget that Qt makes when it is first needed
    auto dialog = std::make_unique<QDialog>(&window);
    const std::string head = header(dialog.get(), "QDialog", 1);
    const QPointer<Tracker> tracker = new Tracker(dialog.get());
    new QPushButton("Close", dialog.get());
    auto* const hint = new QLabel("still here", &window, Qt::ToolTip);
    QTimer::singleShot(0, dialog.get(), [&] {
        hint->show();
        dialog->accept();
    });
    EXPECT_EQ(QDialog::Accepted, dialog->exec());
    dialog.reset();
    EXPECT_EQ(head + line(0, hint) + "}\n", report_of(tracker));
}

namespace {

/// A display without a screen, for as long as the object lives.
class Virtual_display {
public:
    Virtual_display()
    {
        std::array<int, 2> ends{};
        if (pipe(ends.data()) != 0)
            return;
        const std::string write_end = std::to_string(ends[1]);
        server = fork();
        if (server == 0) {
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            close(ends[0]);
            if (std::freopen("/dev/null", "w", stderr) != nullptr)
                execlp("Xvfb", "Xvfb", "-displayfd", write_end.c_str(), "-screen", "0", "640x480x24",
                       "-nolisten", "tcp", nullptr);
            _exit(127);
        }
        close(ends[1]);
        char c = 0; // a number and a line end, or nothing when it does not start
        while (read(ends[0], &c, 1) == 1 && c != '\n')
            number += c;
        close(ends[0]);
    }
    ~Virtual_display()
    {
        if (server > 0) {
            kill(server, SIGTERM);
            waitpid(server, nullptr, 0);
        }
    }
    Virtual_display(const Virtual_display&) = delete;
    Virtual_display& operator=(const Virtual_display&) = delete;

    std::string name() const { return number.empty() ? "" : ":" + number; }

private:
    pid_t server = -1;
    std::string number;
};

} // namespace

TEST(Widget_census_on_a_display, finds_what_a_dialog_leaves_in_a_real_window)
{
    const Virtual_display display;
    if (display.name().empty())
        GTEST_SKIP() << "there is no Xvfb here to show windows on";
    qputenv("DISPLAY", display.name().c_str());
    // What else a desktop offers is not needed here, and leaks.
    qputenv("QT_XCB_GL_INTEGRATION", "none");
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
    const auto application = application_on("xcb");
    ASSERT_EQ("xcb", QGuiApplication::platformName());
    Watcher watcher;
    QApplication::desktop();

    QMainWindow window;
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window, 60000));
    auto* const dialog = new QDialog(&window);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    const QPointer<Tracker> tracker = new Tracker(dialog);
    const std::string head = header(dialog, "QDialog", 2);
    auto* const close = new QPushButton("Close", dialog);
    QObject::connect(close, &QPushButton::clicked, dialog, &QDialog::close);
    auto* const hint = new QFrame(&window, Qt::Tool);
    auto* const label = new QLabel("still here", hint);
    dialog->show();
    hint->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(dialog, 60000));
    ASSERT_TRUE(QTest::qWaitForWindowExposed(hint, 60000));
    close->click();
    EXPECT_EQ(head + line(0, hint) + line(1, label) + "}\n", report_of(tracker));
}
