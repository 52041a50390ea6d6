#pragma once
// A small file system of its own, for a test that needs a full disk (only
// root may mount one). It is unmounted with the test even when an assertion
// ends the test early, so no mount is left behind in the build's folder.

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cerrno>
#include <cstring>
#include <string>
#include <sys/mount.h>

namespace presupuestos::prueba {

class DiscoPequeno {
public:
    // tamano as mount takes it: "64k", "2m".
    explicit DiscoPequeno(const char* tamano)
        : dir_(QDir::current().filePath(QStringLiteral("disco-XXXXXX")))
    {
        montado_ = ::mount("tmpfs", punto().constData(), "tmpfs", 0, (QByteArrayLiteral("size=") + tamano).constData()) == 0;
        error_ = montado_ ? std::string() : std::strerror(errno);
    }
    ~DiscoPequeno()
    {
        if (montado_)
            ::umount(punto().constData());
    }
    DiscoPequeno(const DiscoPequeno&) = delete;
    DiscoPequeno& operator=(const DiscoPequeno&) = delete;

    bool montado() const { return montado_; }
    // Why it could not be mounted.
    const std::string& error() const { return error_; }
    QString path() const { return dir_.path(); }
    QString filePath(const QString& nombre) const { return dir_.filePath(nombre); }

private:
    QByteArray punto() const { return QFile::encodeName(dir_.path()); }

    QTemporaryDir dir_;
    bool montado_ = false;
    std::string error_;
};

} // namespace presupuestos::prueba
