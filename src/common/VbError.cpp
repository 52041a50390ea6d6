#include "common/VbError.h"

namespace presupuestos {

VbError::VbError(int number, const QString& description, int line, Causa causa)
    : std::runtime_error(description.toStdString()), number_(number), description_(description), line_(line), causa_(causa)
{
}

VbError VbError::overflow() { return VbError(Overflow, QStringLiteral("Overflow")); }
VbError VbError::subscriptOutOfRange() { return VbError(SubscriptOutOfRange, QStringLiteral("El subíndice está fuera del intervalo")); }
VbError VbError::typeMismatch() { return VbError(TypeMismatch, QStringLiteral("No coinciden los tipos")); }
VbError VbError::invalidUseOfNull() { return VbError(94, QStringLiteral("Uso no válido de Null")); }
VbError VbError::invalidPropertyValue() { return VbError(380, QStringLiteral("Valor de propiedad no válido")); }
VbError VbError::invalidProcedureCall() { return VbError(InvalidProcedureCall, QStringLiteral("Llamada a procedimiento o argumento no válido")); }
VbError VbError::internalError() { return VbError(51, QStringLiteral("Error interno")); }
VbError VbError::outOfMemory() { return VbError(7, QStringLiteral("Memoria insuficiente")); }
VbError VbError::noCurrentRecord()
{
    return VbError(3021, QStringLiteral("BOF o EOF es True, o el registro actual se eliminó. La operación requiere un registro actual."));
}
VbError VbError::itemNotFound()
{
    return VbError(3265, QStringLiteral("No se encontró el elemento en la colección que corresponde al nombre o al ordinal solicitado."));
}
VbError VbError::connectionUnusable()
{
    return VbError(3709, QStringLiteral("No se puede usar la conexión para realizar esta operación."));
}

} // namespace presupuestos
