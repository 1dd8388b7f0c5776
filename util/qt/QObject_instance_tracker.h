#pragma once

#include "util/export.h"

#include <QHash>
#include <QObject>
#include <QString>

#include <cstdint>

/// Hunts leaks: is told of every QObject of some family that is built or destroyed, and prints after each
/// event which of them are still there, numbered in the order of their creation from 0 on.
///
/// A report on standard output, here of a tracker named "Dialogs: ":
///
///     Dialogs: Instances at Construct detail="settings"? obj="QDialog"(94021845770432)
///         Inst 0 of  obj="QDialog"(94021845768768)
///         Inst 1 of  obj="QDialog"(94021845770432)
///
/// The lines below the first come in no promised order. Addresses are decimal. Texts are printed in the local
/// 8-bit encoding.
///
/// For one thread, the one that the tracker lives in. Tracked objects live there too: the destroyed() of one
/// that lives elsewhere would be heard only after it is gone.
class QUARVEL_EXPORT QObject_instance_tracker : public QObject {
    Q_OBJECT

public:
    /// @param tracker_name  printed as it is in front of each report, so it normally ends in a space
    explicit QObject_instance_tracker(QString tracker_name);

    /// Prints what is still tracked, under the action "Quit".
    ~QObject_instance_tracker() override;

    /// Tracks an object under the next number, which is never used again. One that is tracked already stays
    /// in the list once, under the new number.
    ///
    /// @param detail             any text for the report; an empty one is left out
    /// @param connect_destroyed  whether the object's destroyed() reports its end. Without it the caller
    ///                           calls destruct() before the object goes: every report asks every tracked
    ///                           object for its class.
    void construct(QObject* obj, QString detail, bool connect_destroyed);

    /// Tracks an object no longer. The report is printed also when it was not tracked; the object is asked
    /// for its class either way.
    void destruct(QObject* obj, QString detail);

    /// Prints a report: the action with the object, which may be null, and what is tracked.
    void print_instances(QObject* obj, QString action, QString detail);

    /// A destruct() that tells of itself as the detail. By the time destroyed() is emitted the object's class
    /// is a base: QWidget for a widget, else QObject.
    Q_SLOT void handle_delete(QObject* obj);

private:
    QHash<QObject*, std::int32_t> instances;
    QString name;
    std::int32_t next_sequence = 0;
};
