#pragma once

#include "Actions.h"
#include "Epoch_server.h"
#include "Firmware.h"
#include "Log_model.h"
#include "Sky.h"
#include "Source.h"
#include "Store.h"
#include "util/log/Log_item_sender.h"

#include <QElapsedTimer>
#include <QTimer>

#include <deque>
#include <vector>

/// What the screen shows of one moment. Places are in the field's plane: north and east, metres, around a
/// centre that stays while the program runs, whatever becomes of the line.
struct Moment {
    Epoch epoch;
    Math2D::Point place;
    bool has_fix = false;      ///< there was one, and it is not too old
    bool has_line = false;     ///< else what the epoch says of a line means nothing
    bool engaged = false;      ///< the steering follows the line
    bool driver_turns = false; ///< engaged, but the driver has the wheel for the moment
    double off_seen = 0.0;     ///< metres right of the line as the driver looks, who may drive from B to A
    int swath = 0;             ///< which parallel is followed, counted to the right
    double nudge = 0.0;        ///< metres
    std::int64_t number = 0;   ///< of epochs so far
};

/// What a parallel is called: "A–B" is the line itself, "2 R" the second to its right.
QString swath_name(int swath);

/// The line as the screen draws it.
struct Field_line {
    std::optional<Math2D::Point> a;
    std::optional<Math2D::Point> b;
    std::optional<Math2D::Point> new_a; ///< of the next line, while its B is not set
};

/// What a chart draws: one epoch of the latest minute.
struct Sample {
    double time_s;
    double off_seen;
    double steering_deg;
};

/// One place of the way driven, and whether the vehicle worked from there on.
struct Track_place {
    Math2D::Point place;
    bool worked;
};

/// The console without its screen: from a source's fixes through guidance to records, viewers and the log.
///
/// For the one thread that its event loop runs in. What it is built with outlives it.
class Console : public QObject {
    Q_OBJECT

public:
    static constexpr double SWATH_WIDTH = 9.0; ///< metres
    static constexpr double NUDGE = 0.05;      ///< metres
    static constexpr double CHART_S = 60.0;
    static constexpr double SILENCE_S = 2.0; ///< of a live receiver, after which its last position is too old

    /// @param server  may be null
    Console(Source& source, Store& store, Epoch_server* server, Actions& actions, Firmware firmware);
    ~Console() override;

    /// Brings the last run's settings back and has the source start.
    ///
    /// @param engaged  whether to steer from the first fix on
    void start(bool engaged);

    /// Has the log tell the drive's time, which began then, and not the clock's: the same drive makes the same log.
    void set_drive_began(QTime time) { drive_began = time; }

    const Moment& moment() const { return now; }
    const Field_line& line() const { return drawn_line; }
    const std::vector<Track_place>& track() const { return way; }
    const std::deque<Sample>& samples() const { return latest; }
    const Sky& sky() const { return heaven; }
    const Firmware& firmware() const { return version; }
    const Gains& gains() const { return settings.gains; }
    Log_model& log() { return items; }
    const Source& source() const { return fixes; }
    const Store& store() const { return records; }
    const Epoch_server* server() const { return viewers; }

    /// What the operator must know now, the gravest first; empty when all is well.
    QString alarm() const;

signals:
    void epoch_done();
    void changed(); ///< the line, the gains, the steering's state or a part's health
    void sky_changed();
    void answered(const QString& message); ///< what became of the operator's latest wish

public slots:
    void set_a();
    void set_b();
    void nudge(double metres);
    void engage(bool on);
    void tune(Gains gains);
    void reset();

    /// Writes the log from this priority on into the store.
    void export_log(int least_priority);

private:
    void take_fix(const Fix& fix);
    void take_sentence(const QByteArray& sentence);
    void begin(const Fix& fix);
    void use_line(const Line_ends& ends);
    void observe_interval(const Fix& fix);
    void step(const Fix& fix);
    void choose_swath();
    void remember();
    void serve();
    void watch();
    void source_changed();
    void say_store_problem();
    void save();
    void draw_line();
    Math2D::Point in_field(const PointLLH& point);
    void answer(Util::Log_item_priority priority, const std::string& message, int code_line);
    void note(Util::Log_item_priority priority, const std::string& message, int code_line) const;

    Source& fixes;
    Store& records;
    Epoch_server* viewers;

    Util::Log_item_sender central; ///< all that is logged comes by here
    Util::Log_item_source program_log;
    Log_model items;

    std::unique_ptr<Guidance> guidance; ///< from the first fix on
    Coordinate_converter field;
    Mini_PP straight; ///< the line of the settings
    Settings settings;
    std::optional<PointLLH> new_a; ///< set, waiting for its B
    bool engage_first = false;
    Moment now;
    Field_line drawn_line;
    std::vector<Track_place> way;
    std::deque<Sample> latest;
    std::vector<double> intervals; ///< between the first fixes of a receiver whose rate is not known
    Sky heaven;
    Firmware version;
    QElapsedTimer since_fix;
    QTimer watchdog;
    int lost_bytes = 0;
    std::optional<QTime> drive_began;
};
