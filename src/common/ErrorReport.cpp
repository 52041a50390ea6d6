#include "common/ErrorReport.h"

#include "common/Plataforma.h"

namespace presupuestos {

QString tituloError(const QString& nombreCalificado, int linea)
{
    QString titulo;
    if (linea > 0)
        titulo = QLatin1Char('[') + QString::number(linea) + QStringLiteral("] ");
    return titulo + nombreCalificado;
}

void mostrarError(const VbError& error, const QString& nombreCalificado, bool restaurarPuntero)
{
    if (restaurarPuntero)
        Plataforma::puntero().establecer(Puntero::Defecto);
    Plataforma::mensajes().MsgBox(error.description(), vb::Critical, tituloError(nombreCalificado, error.line()));
}

VbError comoVbError(const std::exception& e)
{
    if (auto* vbe = dynamic_cast<const VbError*>(&e))
        return *vbe;
    if (dynamic_cast<const std::bad_alloc*>(&e))
        return VbError::outOfMemory();
    return VbError(5, QString::fromUtf8(e.what()));
}

bool conManejador(const QString& nombreCalificado, const std::function<void()>& cuerpo, bool restaurarPuntero)
{
    try {
        cuerpo();
        return true;
    } catch (const std::exception& e) {
        mostrarError(comoVbError(e), nombreCalificado, restaurarPuntero);
        return false;
    }
}

} // namespace presupuestos
