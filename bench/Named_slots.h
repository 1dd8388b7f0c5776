#pragma once

#include <QObject>
#include <QString>

/// Signals and slots that are looked up by name: as many as a panel of a console has.
class Named_signals : public QObject {
    Q_OBJECT
signals:
    void position_changed(int value);
    void speed_changed(int value);
    void heading_changed(int value);
    void height_changed(int value);
    void quality_changed(int value);
    void satellites_changed(int value);
    void corrections_changed(int value);
    void line_changed(int value);
};

class Named_slots : public QObject {
    Q_OBJECT
public:
    int received = 0;
public slots:
    void on_position_changed(int) { ++received; }
    void on_speed_changed(int) { ++received; }
    void on_heading_changed(int) { ++received; }
    void on_height_changed(int) { ++received; }
    void on_quality_changed(int) { ++received; }
    void on_satellites_changed(int) { ++received; }
    void on_corrections_changed(int) { ++received; }
    void on_line_changed(int) { ++received; }
    void on_message(int, const QString&) { ++received; }
};
