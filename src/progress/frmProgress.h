#pragma once
// A small always-on-top progress window for the worksheet's long copy and
// paste loops. It shows itself only when the operation is still reporting
// progress once its delay has passed, so short operations never flash it.

#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;
class QTimer;

namespace presupuestos {

class frmProgress : public QWidget {
    Q_OBJECT
public:
    explicit frmProgress(QWidget* parent = nullptr);

    void Init(const QString& strTitle, int intMax);
    void SetText(const QString& strText);
    void SetValue(int Value);
    // Arms the delayed appearance; the delay counts from the next SetValue.
    void Start_Delayed(qint16 s);

    bool InicioDiferido = false;

    QLabel* lblTitle = nullptr;
    QProgressBar* ProgressBar1 = nullptr;
    QLabel* lblProgressText = nullptr;
    QPushButton* cmdCancelar = nullptr;
    QTimer* Timer1 = nullptr;

    void Timer1_Timer();

signals:
    void Cancel();

private:
    int intervalo_ = 0;
};

// Thin owner of a progress window.
class clsProgress : public QObject {
    Q_OBJECT
public:
    explicit clsProgress(QObject* parent = nullptr);
    ~clsProgress() override;

    qint16 Value = 0;
    bool AllowCancel = false;

    void Init(const QString& strTitle, int intMax);
    frmProgress* ventana() const { return form_; }

signals:
    void RequestCancel();

private:
    frmProgress* form_ = nullptr;
};

} // namespace presupuestos
