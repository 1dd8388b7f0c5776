#include "util/qt/QObject_instance_tracker.h"

#include "tests/support/Event_thread.h"
#include "tests/support/High_place.h"

#include <QMetaMethod>
#include <QTextCodec>
#include <QTimer>

#include <gmock/gmock.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

using Tracker = QObject_instance_tracker;
using testing::ElementsAre;

static_assert(std::is_base_of_v<QObject, Tracker>);

namespace {

/// What a function writes to standard output.
template <typename FUNCTION>
std::string printed(FUNCTION function)
{
    testing::internal::CaptureStdout();
    function();
    return testing::internal::GetCapturedStdout();
}

/// The first line as it stands and the others sorted, as they come in no promised order.
std::vector<std::string> lines(const std::string& report)
{
    std::vector<std::string> all;
    std::istringstream stream(report);
    for (std::string line; std::getline(stream, line);)
        all.push_back(line);
    if (!all.empty())
        std::sort(all.begin() + 1, all.end());
    return all;
}

/// An object's piece of a report, made by the C library.
std::string piece(const QObject& object, const char* class_name)
{
    char text[200];
    std::snprintf(text, sizeof text, " obj=\"%s\"(%" PRIuPTR ")", class_name,
                  reinterpret_cast<std::uintptr_t>(&object));
    return text;
}

std::string line(int sequence, const QObject& object, const char* class_name)
{
    return "    Inst " + std::to_string(sequence) + " of " + piece(object, class_name);
}

/// Ends without a report on the terminal. Declared after what it tracks, as its last report asks that again.
class Quiet_tracker {
public:
    explicit Quiet_tracker(const QString& name) : tracker(std::make_unique<Tracker>(name)) {}
    ~Quiet_tracker()
    {
        printed([this] { tracker.reset(); });
    }
    Quiet_tracker(const Quiet_tracker&) = delete;
    Quiet_tracker& operator=(const Quiet_tracker&) = delete;
    Tracker* operator->() { return tracker.get(); }

private:
    std::unique_ptr<Tracker> tracker;
};

std::string construct(Quiet_tracker& tracker, QObject& object, const QString& detail = {},
                      bool connect_destroyed = false)
{
    return printed([&] { tracker->construct(&object, detail, connect_destroyed); });
}

std::string destruct(Quiet_tracker& tracker, QObject& object, const QString& detail = {})
{
    return printed([&] { tracker->destruct(&object, detail); });
}

} // namespace

TEST(QObject_instance_tracker, goes_by_its_name_among_Qts_objects_and_has_one_slot)
{
    const QMetaObject& meta = Tracker::staticMetaObject;
    EXPECT_STREQ("QObject_instance_tracker", meta.className());
    EXPECT_STREQ("QObject", meta.superClass()->className());
    ASSERT_EQ(1, meta.methodCount() - meta.methodOffset());
    EXPECT_EQ(0, meta.propertyCount() - meta.propertyOffset());
    const QMetaMethod slot = meta.method(meta.methodOffset());
    EXPECT_EQ("handle_delete(QObject*)", slot.methodSignature());
    EXPECT_EQ(QMetaMethod::Slot, slot.methodType());
    EXPECT_EQ(QMetaMethod::Public, slot.access());
    EXPECT_STREQ("void", slot.typeName());
}

TEST(QObject_instance_tracker, has_no_parent_and_prints_nothing_when_built)
{
    std::unique_ptr<Tracker> tracker;
    EXPECT_EQ("", printed([&] { tracker = std::make_unique<Tracker>("Dialogs: "); }));
    EXPECT_EQ(nullptr, tracker->parent());
    printed([&] { tracker.reset(); });
}

TEST(QObject_instance_tracker, reports_a_construction_without_a_detail)
{
    QTimer object;
    Quiet_tracker tracker("Dialogs: ");
    EXPECT_EQ("Dialogs: Instances at Construct" + piece(object, "QTimer") + "\n" + "    Inst 0 of " +
                  piece(object, "QTimer") + "\n",
              construct(tracker, object));
}

TEST(QObject_instance_tracker, reports_a_construction_with_a_detail_and_its_question_mark)
{
    QTimer object;
    Quiet_tracker tracker("Dialogs: ");
    EXPECT_EQ("Dialogs: Instances at Construct detail=\"from the menu\"?" + piece(object, "QTimer") + "\n" +
                  "    Inst 0 of " + piece(object, "QTimer") + "\n",
              construct(tracker, object, "from the menu"));
}

TEST(QObject_instance_tracker, reports_a_destruction_and_what_is_left)
{
    QTimer first;
    QObject second;
    Quiet_tracker tracker("Dialogs: ");
    construct(tracker, first);
    construct(tracker, second);
    EXPECT_EQ("Dialogs: Instances at Destruct detail=\"closed\"?" + piece(first, "QTimer") + "\n" +
                  "    Inst 1 of " + piece(second, "QObject") + "\n",
              destruct(tracker, first, "closed"));
    EXPECT_EQ("Dialogs: Instances at Destruct" + piece(second, "QObject") + "\n", destruct(tracker, second));
}

TEST(QObject_instance_tracker, puts_its_name_right_in_front)
{
    Quiet_tracker nameless("");
    EXPECT_EQ("Instances at X\n", printed([&] { nameless->print_instances(nullptr, "X", {}); }));
    Quiet_tracker bare("Dialogs");
    EXPECT_EQ("DialogsInstances at X\n", printed([&] { bare->print_instances(nullptr, "X", {}); }));
}

TEST(QObject_instance_tracker, prints_any_action_with_or_without_an_object_and_a_detail)
{
    QObject object;
    Quiet_tracker tracker("T ");
    const std::string of_object = piece(object, "QObject");
    EXPECT_EQ("T Instances at Now\n", printed([&] { tracker->print_instances(nullptr, "Now", {}); }));
    EXPECT_EQ("T Instances at Now\n", printed([&] { tracker->print_instances(nullptr, "Now", ""); }));
    EXPECT_EQ("T Instances at Now detail=\"why\"?\n",
              printed([&] { tracker->print_instances(nullptr, "Now", "why"); }));
    EXPECT_EQ("T Instances at Now" + of_object + "\n",
              printed([&] { tracker->print_instances(&object, "Now", {}); }));
    EXPECT_EQ("T Instances at " + std::string(" detail=\" \"?") + of_object + "\n",
              printed([&] { tracker->print_instances(&object, "", " "); }));
}

TEST(QObject_instance_tracker, tracks_nothing_by_printing)
{
    QObject object;
    Quiet_tracker tracker("T ");
    printed([&] { tracker->print_instances(&object, "Construct", {}); });
    EXPECT_EQ("T Instances at Now\n", printed([&] { tracker->print_instances(nullptr, "Now", {}); }));
    EXPECT_THAT(lines(construct(tracker, object)), testing::Contains(line(0, object, "QObject")));
}

TEST(QObject_instance_tracker, numbers_from_zero_and_never_uses_a_number_again)
{
    std::vector<std::unique_ptr<QObject>> objects;
    Quiet_tracker tracker("T ");
    for (int i = 0; i < 5; ++i) {
        objects.push_back(std::make_unique<QObject>());
        construct(tracker, *objects.back());
    }
    for (const auto& object : objects)
        destruct(tracker, *object);
    for (int i = 0; i < 3; ++i) // the same object again and again
        EXPECT_THAT(lines(construct(tracker, *objects.front())),
                    ElementsAre("T Instances at Construct" + piece(*objects.front(), "QObject"),
                                line(5 + i, *objects.front(), "QObject")));
}

TEST(QObject_instance_tracker, keeps_the_newer_number_of_an_object_reported_twice)
{
    QObject twice;
    QObject once;
    Quiet_tracker tracker("T ");
    construct(tracker, twice);
    construct(tracker, once);
    const std::string header = "T Instances at Construct" + piece(twice, "QObject");
    EXPECT_EQ(lines(header + "\n" + line(1, once, "QObject") + "\n" + line(2, twice, "QObject")),
              lines(construct(tracker, twice)));
    EXPECT_THAT(lines(destruct(tracker, twice)),
                ElementsAre("T Instances at Destruct" + piece(twice, "QObject"), line(1, once, "QObject")));
}

TEST(QObject_instance_tracker, reports_the_destruction_of_what_it_does_not_track_over_an_unchanged_list)
{
    QObject tracked;
    QTimer other;
    Quiet_tracker tracker("T ");
    construct(tracker, tracked);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ("T Instances at Destruct" + piece(other, "QTimer") + "\n" + line(0, tracked, "QObject") +
                      "\n",
                  destruct(tracker, other));
    destruct(tracker, tracked);
    EXPECT_EQ("T Instances at Destruct" + piece(tracked, "QObject") + "\n", destruct(tracker, tracked));
}

TEST(QObject_instance_tracker, hears_of_a_destruction_when_connected_and_calls_the_object_by_its_base_class)
{
    QObject other;
    Quiet_tracker tracker("T ");
    construct(tracker, other);
    auto object = std::make_unique<QTimer>();
    construct(tracker, *object, {}, true);
    const std::string of_object = piece(*object, "QObject");
    EXPECT_EQ("T Instances at Destruct detail=\"QObject_instance_tracker::handle_delete\"?" + of_object +
                  "\n" + line(0, other, "QObject") + "\n",
              printed([&] { object.reset(); }));
}

TEST(QObject_instance_tracker, hears_nothing_when_not_connected)
{
    Quiet_tracker tracker("T ");
    auto object = std::make_unique<QTimer>();
    construct(tracker, *object, {}, false);
    destruct(tracker, *object);
    EXPECT_EQ("", printed([&] { object.reset(); }));
    EXPECT_EQ("T Instances at Now\n", printed([&] { tracker->print_instances(nullptr, "Now", {}); }));
}

TEST(QObject_instance_tracker, hears_of_a_destruction_once_for_each_time_it_was_connected)
{
    Quiet_tracker tracker("T ");
    auto object = std::make_unique<QObject>();
    for (int i = 0; i < 3; ++i)
        construct(tracker, *object, {}, true);
    const std::string report = "T Instances at Destruct detail=\"QObject_instance_tracker::handle_delete\"?" +
                               piece(*object, "QObject") + "\n";
    EXPECT_EQ(report + report + report, printed([&] { object.reset(); }));
}

TEST(QObject_instance_tracker, still_hears_of_a_destruction_that_was_reported_before)
{
    auto object = std::make_unique<QObject>();
    Quiet_tracker tracker("T ");
    construct(tracker, *object, {}, true);
    destruct(tracker, *object, "by hand");
    const std::string report = "T Instances at Destruct detail=\"QObject_instance_tracker::handle_delete\"?" +
                               piece(*object, "QObject") + "\n";
    EXPECT_EQ(report, printed([&] { object.reset(); }));
}

TEST(QObject_instance_tracker, is_connected_to_the_signal_that_carries_the_object)
{
    QObject object;
    Quiet_tracker tracker("T ");
    Tracker* const receiver = tracker.operator->();
    construct(tracker, object, {}, false);
    EXPECT_FALSE(QObject::disconnect(&object, "2destroyed(QObject*)", receiver, "1handle_delete(QObject*)"));
    construct(tracker, object, {}, true);
    EXPECT_TRUE(QObject::disconnect(&object, "2destroyed(QObject*)", receiver, "1handle_delete(QObject*)"));
    EXPECT_FALSE(QObject::disconnect(&object, nullptr, receiver, nullptr));
}

TEST(QObject_instance_tracker, hears_at_once_of_its_own_thread_and_later_of_another)
{
    const Application application;
    Event_thread thread;
    QObject object;
    Quiet_tracker tracker("T ");
    construct(tracker, object, {}, true);
    const std::string report = "T Instances at Destruct detail=\"QObject_instance_tracker::handle_delete\"?" +
                               piece(object, "QObject") + "\n";
    // The signal alone: later the object would be gone when it is asked for its class.
    EXPECT_EQ(report, printed([&] { emit object.destroyed(&object); }));
    EXPECT_EQ("", printed([&] { thread.run([&] { emit object.destroyed(&object); }); }));
    EXPECT_EQ(report, printed([] { Application::run_event_loop(); }));
    QObject::disconnect(&object, nullptr, tracker.operator->(), nullptr);
}

TEST(QObject_instance_tracker, deletes_as_a_slot_that_is_called_by_name)
{
    QTimer object;
    Quiet_tracker tracker("T ");
    construct(tracker, object);
    EXPECT_EQ("T Instances at Destruct detail=\"QObject_instance_tracker::handle_delete\"?" +
                  piece(object, "QTimer") + "\n",
              printed([&] {
                  EXPECT_TRUE(QMetaObject::invokeMethod(tracker.operator->(), "handle_delete",
                                                        Q_ARG(QObject*, &object)));
              }));
}

TEST(QObject_instance_tracker, asks_every_object_for_its_class_anew_in_each_report)
{
    Quiet_tracker tracker("T ");
    auto object = std::make_unique<QTimer>();
    EXPECT_THAT(lines(construct(tracker, *object)), testing::Contains(line(0, *object, "QTimer")));
    const std::string as_its_base =
        "T Instances at Now" + piece(*object, "QObject") + "\n" + line(0, *object, "QObject") + "\n";
    std::string report;
    QObject::connect(object.get(), &QObject::destroyed, [&](QObject* gone) {
        report = printed([&] { tracker->print_instances(gone, "Now", {}); });
        destruct(tracker, *gone);
    });
    object.reset();
    EXPECT_EQ(as_its_base, report);
}

TEST(QObject_instance_tracker, tells_the_survivors_when_it_quits)
{
    QTimer first;
    QObject second;
    auto tracker = std::make_unique<Tracker>("Dialogs: ");
    printed([&] {
        tracker->construct(&first, "one", false);
        tracker->construct(&second, "two", true);
    });
    EXPECT_THAT(
        lines(printed([&] { tracker.reset(); })),
        ElementsAre("Dialogs: Instances at Quit", line(0, first, "QTimer"), line(1, second, "QObject")));
}

TEST(QObject_instance_tracker, prints_the_header_only_when_it_quits_without_survivors)
{
    EXPECT_EQ("Dialogs: Instances at Quit\n", printed([] { const Tracker tracker("Dialogs: "); }));
    auto tracker = std::make_unique<Tracker>("Dialogs: ");
    printed([&] {
        QObject object;
        tracker->construct(&object, {}, true);
    });
    EXPECT_EQ("Dialogs: Instances at Quit\n", printed([&] { tracker.reset(); }));
}

TEST(QObject_instance_tracker, leaves_objects_that_outlive_it_alone)
{
    auto object = std::make_unique<QObject>();
    printed([&] {
        Tracker tracker("T ");
        tracker.construct(object.get(), {}, true);
    });
    EXPECT_EQ("", printed([&] { object.reset(); }));
}

TEST(QObject_instance_tracker, tells_two_trackers_apart)
{
    QObject object;
    Quiet_tracker one("one ");
    Quiet_tracker two("two ");
    construct(one, object);
    construct(one, object);
    EXPECT_EQ("two Instances at Construct" + piece(object, "QObject") + "\n" + line(0, object, "QObject") +
                  "\n",
              construct(two, object));
}

TEST(QObject_instance_tracker, prints_its_texts_as_they_are)
{
    for (const char* text : {"%1", "%2 %1", "%s%n%d", "\"?", "a\nb", "%%", "100 %"}) {
        SCOPED_TRACE(text);
        QObject object;
        Quiet_tracker tracker(text);
        EXPECT_EQ(text + std::string("Instances at ") + text + " detail=\"" + text + "\"?" +
                      piece(object, "QObject") + "\n",
                  printed([&] { tracker->print_instances(&object, text, text); }));
    }
}

TEST(QObject_instance_tracker, prints_in_the_local_encoding)
{
    QTextCodec* const before = QTextCodec::codecForLocale();
    for (const auto& [codec, text] : {std::pair("ISO 8859-1", "Gr\xF6\xDF"
                                                              "e"),
                                      std::pair("UTF-8", "Gr\xC3\xB6\xC3\x9F"
                                                         "e")}) {
        SCOPED_TRACE(codec);
        QTextCodec::setCodecForLocale(QTextCodec::codecForName(codec));
        const QString size = QString::fromUtf8("Gr\xC3\xB6\xC3\x9F"
                                               "e");
        Quiet_tracker tracker(size + " ");
        EXPECT_EQ(text + std::string(" Instances at ") + text + " detail=\"" + text + "\"?\n",
                  printed([&] { tracker->print_instances(nullptr, size, size); }));
    }
    QTextCodec::setCodecForLocale(before);
}

TEST(QObject_instance_tracker, prints_by_the_C_library_and_not_by_Qts_message_handler)
{
    static int messages;
    messages = 0;
    const QtMessageHandler before =
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) { ++messages; });
    QObject object;
    Quiet_tracker tracker("T ");
    testing::internal::CaptureStdout();
    std::printf("before ");
    tracker->construct(&object, {}, true);
    std::printf("behind");
    EXPECT_EQ("before T Instances at Construct" + piece(object, "QObject") + "\n" +
                  line(0, object, "QObject") + "\nbehind",
              testing::internal::GetCapturedStdout());
    printed([&] { tracker->destruct(&object, {}); });
    qInstallMessageHandler(before);
    EXPECT_EQ(0, messages);
    QObject::disconnect(&object, nullptr, tracker.operator->(), nullptr);
}

TEST(QObject_instance_tracker, prints_high_addresses_without_a_sign)
{
    Quiet_tracker tracker("T ");
    const High_place place;
    auto* const object = new (place.get()) QObject;
    const std::string address = std::to_string(reinterpret_cast<std::uintptr_t>(object));
    const std::string of_object = " obj=\"QObject\"(" + address + ")";
    EXPECT_EQ("T Instances at Construct" + of_object + "\n    Inst 0 of " + of_object + "\n",
              construct(tracker, *object));
    destruct(tracker, *object);
    object->~QObject();
}

TEST(QObject_instance_tracker, tells_the_same_as_a_map_of_numbers_over_random_lives)
{
    const unsigned seed = 61;
    std::mt19937 random(seed);
    std::vector<std::unique_ptr<QObject>> objects(12);
    Quiet_tracker tracker("T ");
    std::map<QObject*, int> tracked;
    std::map<QObject*, int> connections;
    int next = 0;
    for (int step = 0; step < 10000; ++step) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", step " << step);
        auto& slot = objects[random() % objects.size()];
        if (!slot)
            slot = std::make_unique<QTimer>();
        QObject* const object = slot.get();
        const unsigned action = random() % 8;
        std::string report;
        std::vector<std::string> expected;
        if (action < 4) {
            const bool connected = action < 2;
            report = construct(tracker, *object, {}, connected);
            tracked[object] = next++;
            connections[object] += connected;
            expected.push_back("T Instances at Construct" + piece(*object, "QTimer"));
        } else if (action < 6) {
            report = destruct(tracker, *object, "x");
            tracked.erase(object);
            expected.push_back("T Instances at Destruct detail=\"x\"?" + piece(*object, "QTimer"));
        } else if (connections[object] == 1) {
            expected.push_back("T Instances at Destruct detail=\"QObject_instance_tracker::handle_delete\"?" +
                               piece(*object, "QObject"));
            report = printed([&slot] { slot.reset(); });
            tracked.erase(object);
            connections.erase(object);
        } else
            continue;
        for (const auto& [each, sequence] : tracked)
            expected.push_back(line(sequence, *each, "QTimer"));
        std::sort(expected.begin() + 1, expected.end());
        ASSERT_EQ(expected, lines(report));
    }
    EXPECT_LT(3000, next);
    for (const auto& object : objects)
        if (object) {
            destruct(tracker, *object); // before the unconnected ones go
            QObject::disconnect(object.get(), nullptr, tracker.operator->(), nullptr);
        }
}
