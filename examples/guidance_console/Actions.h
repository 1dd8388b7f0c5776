#pragma once

#include "Source.h"
#include "util/qt/Signal_sender.h"

#include <QMetaType>

/// What the operator can do, as named signals: who raises one knows nothing of who acts on it.
///
/// Each reaches the console from its event loop, a moment later.
class Actions {
public:
    static constexpr const char* PREFIX = "operator";

    Actions();

    /// Connects every action to the slot of the same signature.
    ///
    /// @return false when the receiver lacks one
    bool connect_all(const QObject& receiver);

    void set_a() const;
    void set_b() const;
    void nudge(double metres) const; ///< to the right, looking from A to B
    void engage(bool on) const;
    void tune(const Gains& gains) const;
    void reset() const;
    void export_log(int least_priority) const;

private:
    Util::Signal_sender sender;
};

Q_DECLARE_METATYPE(Gains)
