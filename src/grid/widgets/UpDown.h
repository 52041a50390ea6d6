#pragma once
// A spinner of two small arrow buttons that steps the whole number shown in
// its companion box, within a range, and reports each click.

#include <QWidget>

class QLineEdit;
class QToolButton;

namespace presupuestos {

class UpDown : public QWidget {
    Q_OBJECT
public:
    explicit UpDown(QWidget* parent = nullptr);
    // The box whose number it steps, and the range.
    void setCompanero(QLineEdit* companero, int minimo, int maximo);

    int valor() const;
    // The clicks a user makes, for programs and tests.
    void clickArriba();
    void clickAbajo();

signals:
    void UpClick();
    void DownClick();

private:
    void paso(int delta);
    QLineEdit* companero_ = nullptr;
    int minimo_ = 0;
    int maximo_ = 0;
};

} // namespace presupuestos
