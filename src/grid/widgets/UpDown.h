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
    // The box whose number it steps, and the range. The box takes the
    // keyboard too: the arrow keys step as the buttons do, and a digit in
    // range is the number itself; either is heard as a click.
    void setCompanero(QLineEdit* companero, int minimo, int maximo);

    int valor() const;
    // The clicks a user makes, for programs and tests.
    void clickArriba();
    void clickAbajo();

signals:
    void UpClick();
    void DownClick();

protected:
    bool eventFilter(QObject* objeto, QEvent* evento) override;

private:
    void paso(int delta);
    QLineEdit* companero_ = nullptr;
    int minimo_ = 0;
    int maximo_ = 0;
};

} // namespace presupuestos
