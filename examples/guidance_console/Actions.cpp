#include "Actions.h"

Actions::Actions()
{
    qRegisterMetaType<Gains>("Gains"); // the calls are queued with copies
}

bool Actions::connect_all(const QObject& receiver)
{
    bool all = true;
    for (const char* signature :
         {"set_a()", "set_b()", "nudge(double)", "engage(bool)", "tune(Gains)", "reset()", "export_log(int)"})
        all = sender.connect(PREFIX, ("2" + std::string(signature)).c_str(), &receiver,
                             ("1" + std::string(signature)).c_str()) &&
              all;
    return all;
}

void Actions::set_a() const
{
    sender.emit_signal(PREFIX, "set_a");
}

void Actions::set_b() const
{
    sender.emit_signal(PREFIX, "set_b");
}

void Actions::nudge(double metres) const
{
    sender.emit_signal(PREFIX, "nudge", Q_ARG(double, metres));
}

void Actions::engage(bool on) const
{
    sender.emit_signal(PREFIX, "engage", Q_ARG(bool, on));
}

void Actions::tune(const Gains& gains) const
{
    sender.emit_signal(PREFIX, "tune", Q_ARG(Gains, gains));
}

void Actions::reset() const
{
    sender.emit_signal(PREFIX, "reset");
}

void Actions::export_log(int least_priority) const
{
    sender.emit_signal(PREFIX, "export_log", Q_ARG(int, least_priority));
}
