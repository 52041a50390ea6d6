#pragma once
// Keys and mouse clicks sent to widgets as a user would make them.

#include "grid/widgets/VistaRejilla.h"

#include <QApplication>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMouseEvent>

namespace presupuestos::prueba {

inline void tecla(QWidget* destino, int key, Qt::KeyboardModifiers mod = Qt::NoModifier, const QString& texto = {})
{
    QKeyEvent pulsar(QEvent::KeyPress, key, mod, texto);
    QApplication::sendEvent(destino, &pulsar);
    QKeyEvent soltar(QEvent::KeyRelease, key, mod, texto);
    QApplication::sendEvent(destino, &soltar);
}

inline void raton(VistaRejilla& v, QEvent::Type tipo, Qt::MouseButton boton, const QPoint& p)
{
    const Qt::MouseButtons botones = tipo == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::MouseButtons(boton);
    QMouseEvent e(tipo, QPointF(p), QPointF(v.viewport()->mapToGlobal(p)), boton, botones, Qt::NoModifier);
    QApplication::sendEvent(v.viewport(), &e);
}

inline void clic(VistaRejilla& v, int fila, int col, Qt::MouseButton boton = Qt::LeftButton)
{
    const QPoint p = v.rectCelda(fila, col).center();
    raton(v, QEvent::MouseButtonPress, boton, p);
    raton(v, QEvent::MouseButtonRelease, boton, p);
}

// The cell editor now open, if any (closed editors are hidden at once and deleted later).
inline QLineEdit* editorAbierto(VistaRejilla& v)
{
    for (QLineEdit* e : v.findChildren<QLineEdit*>())
        if (e->isVisible())
            return e;
    return nullptr;
}

} // namespace presupuestos::prueba
