#pragma once

#include "Source.h"
#include "examples/common/Vehicle.h"

/// A simulated vehicle that goes where it is steered to, on a field of its own: at either end its driver
/// takes the wheel and turns it onto the next parallel.
/// The satellites and the receiver's version are made up.
class Simulation : public Paced_source {
    Q_OBJECT

public:
    /// @param line  where to drive; nothing: a line of 120 m across a field
    /// @param seed  another number is another drive
    Simulation(const std::optional<Line_ends>& given, std::uint32_t seed, double speed);

    QString kind() const override { return "SIMULATION"; }
    QString detail() const override;
    std::optional<double> interval_s() const override { return Vehicle::INTERVAL_S; }
    std::optional<Line_ends> own_line(std::string& reason) override;
    void steered(const Epoch& epoch, bool engaged) override;
    bool driver_turns() const override { return turning; }

protected:
    std::optional<double> next_s() const override;
    void deliver() override;

private:
    void make_up_satellites();
    void tell(const QByteArray& body);
    double turn(double heading_deg);

    Line_ends field;
    bool field_given;
    Vehicle vehicle;
    Mini_PP line; ///< of the field, which the operator's line need not be
    double length;
    int epochs = 0;
    bool turning = false;
    double turn_to_deg = 0.0; ///< the heading at which the driver's turn ends
    double turn_side = 1.0;   ///< to the right
};
