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
    UpDown(const QString& nombre, QLineEdit* companero, int minimo, int maximo, QWidget* parent = nullptr);

    int valor() const;
    // The clicks a user makes, for programs and tests.
    void clickArriba();
    void clickAbajo();

signals:
    void UpClick();
    void DownClick();

private:
    void paso(int delta);
    QLineEdit* companero_;
    int minimo_;
    int maximo_;
};

} // namespace presupuestos
