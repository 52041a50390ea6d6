#include "common/VbError.h"

namespace presupuestos {

VbError::VbError(int number, const QString& description, int line)
    : std::runtime_error(description.toStdString()), number_(number), description_(description), line_(line)
{
}

VbError VbError::overflow() { return VbError(Overflow, QStringLiteral("Overflow")); }
VbError VbError::subscriptOutOfRange() { return VbError(SubscriptOutOfRange, QStringLiteral("Subscript out of range")); }
VbError VbError::typeMismatch() { return VbError(TypeMismatch, QStringLiteral("Type mismatch")); }

} // namespace presupuestos
