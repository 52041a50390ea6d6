#pragma once
// Readable failure messages for Qt strings in test assertions.
#include <QString>
#include <ostream>
inline void PrintTo(const QString& s, std::ostream* os) { *os << '"' << s.toStdString() << '"'; }
