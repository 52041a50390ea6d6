#include "worksheet/VistaRejilla.h"
#include <QHeaderView>
namespace presupuestos {
VistaRejilla::VistaRejilla(const QString& n, QWidget* p):QTableView(p),modelo_(new ModeloRejilla(this)),adaptador_(nullptr){setObjectName(n);}
VistaRejilla::~VistaRejilla()=default;
void VistaRejilla::setEditable(bool e){editable_=e;}
bool VistaRejilla::seleccionExtendida() const {return false;}
int VistaRejilla::filaEn(const QPoint&) const {return -1;}
int VistaRejilla::colEn(const QPoint&) const {return -1;}
QRect VistaRejilla::rectCelda(int,int) const {return {};}
int VistaRejilla::filasVisibles() const {return 0;}
void VistaRejilla::keyPressEvent(QKeyEvent* e){QTableView::keyPressEvent(e);}
void VistaRejilla::mousePressEvent(QMouseEvent* e){QTableView::mousePressEvent(e);}
void VistaRejilla::mouseMoveEvent(QMouseEvent* e){QTableView::mouseMoveEvent(e);}
void VistaRejilla::mouseDoubleClickEvent(QMouseEvent* e){QTableView::mouseDoubleClickEvent(e);}
bool VistaRejilla::edit(const QModelIndex& i, EditTrigger t, QEvent* e){return QTableView::edit(i,t,e);}
void VistaRejilla::scrollContentsBy(int x,int y){QTableView::scrollContentsBy(x,y);}

}
