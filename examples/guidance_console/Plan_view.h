#pragma once

#include "Console.h"

#include <QPointF>
#include <QWidget>

class QGestureEvent;
class Touch_button;

/// The field seen from above: the line with its parallels, the way driven and the ground worked on.
///
/// A finger or the mouse drags it, two fingers or the wheel zoom; dragging ends following the vehicle.
class Plan_view : public QWidget {
    Q_OBJECT

public:
    static constexpr double CLOSEST = 200.0; ///< pixels a metre
    static constexpr double FARTHEST = 0.02;

    explicit Plan_view(const Console& shown);

    double scale() const { return pixels_a_metre; }
    bool follows() const { return following; }
    bool heading_up() const { return turned; }

    /// Where a place of the field's plane is on the widget.
    QPointF on_screen(const Math2D::Point& place) const;

public slots: // NOLINT(readability-redundant-access-specifiers): the word is moc's
    void zoom_in();
    void zoom_out();
    void set_following(bool on);
    void set_heading_up(bool on);

    /// Takes up the latest epoch.
    void advance();

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;

private:
    void zoom(double factor, const QPointF& fixed);
    bool pinch(QGestureEvent& event);
    void drag(const QPointF& pixels);
    QPointF anchor() const;
    QTransform to_screen() const;
    QRectF seen_field() const;

    struct Parallel {
        int swath;
        QLineF on_screen;
    };
    std::vector<Parallel> parallels() const;

    void draw_grid(QPainter& painter) const;
    void draw_parallels(QPainter& painter, const std::vector<Parallel>& all) const;
    void draw_names(QPainter& painter, const std::vector<Parallel>& all) const;
    void draw_track(QPainter& painter) const;
    void draw_line(QPainter& painter) const;
    void draw_mark(QPainter& painter, const Math2D::Point& place, const QString& name, bool filled) const;
    void draw_vehicle(QPainter& painter) const;
    void draw_scale(QPainter& painter) const;
    void draw_compass(QPainter& painter) const;
    void draw_advice(QPainter& painter) const;

    const Console& console;
    Math2D::Point centre; ///< of the field's plane, at the anchor
    double pixels_a_metre = 6.0;
    double rotation_deg = 0.0; ///< the heading that points up
    bool following = true;
    bool turned = true;
    bool dragging = false;
    bool pinching = false;
    QPointF dragged_from;
    Touch_button* follow_button;
    Touch_button* north_button;
    std::vector<Touch_button*> buttons;
};
