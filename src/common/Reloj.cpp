#include "common/Reloj.h"

#include <QTime>

namespace presupuestos::reloj {

namespace {
std::function<double()>& actual()
{
    static std::function<double()> f;
    return f;
}
} // namespace

double segundosDesdeMedianoche()
{
    if (actual())
        return actual()();
    return QTime::currentTime().msecsSinceStartOfDay() / 1000.0;
}

void fijar(std::function<double()> reloj) { actual() = std::move(reloj); }

} // namespace presupuestos::reloj
