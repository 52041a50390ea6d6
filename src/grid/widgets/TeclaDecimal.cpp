#include "grid/widgets/TeclaDecimal.h"

#include <QKeyEvent>
#include <QLineEdit>

namespace presupuestos {

bool esTeclaDecimal(const QKeyEvent* e)
{
    if (!(e->modifiers() & Qt::KeypadModifier))
        return false;
    return e->key() == Qt::Key_Period || e->key() == Qt::Key_Comma;
}

bool escribirComaDecimal(QObject* editor, QEvent* e)
{
    if (e->type() != QEvent::KeyPress || !esTeclaDecimal(static_cast<QKeyEvent*>(e)))
        return false;
    auto* linea = qobject_cast<QLineEdit*>(editor);
    if (!linea || linea->isReadOnly())
        return false;
    linea->insert(QStringLiteral(","));
    return true;
}

} // namespace presupuestos
