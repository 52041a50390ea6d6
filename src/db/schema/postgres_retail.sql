-- Retail database, PostgreSQL: a schema of the management database named
-- after it (e.g. pelvor), where three-part names find it.

CREATE TABLE IF NOT EXISTS Empresas_Contabilidad (
    Cod_Empresa  SMALLINT     NOT NULL,
    -- Company code in the accounting system.
    Cod_EmpresaC SMALLINT     NOT NULL,
    Nombre       VARCHAR(200) NOT NULL DEFAULT '',
    PRIMARY KEY (Cod_Empresa, Cod_EmpresaC)
);

-- Daily figures per store and till.
CREATE TABLE IF NOT EXISTS Almacen_Acumulados_2 (
    Cod_Empresa  SMALLINT NOT NULL,
    Cod_Almacen  INT      NOT NULL,
    Fecha        DATE     NOT NULL,
    Caja         SMALLINT NOT NULL DEFAULT 1,
    Tickets      INT      NOT NULL DEFAULT 0,
    Importe      NUMERIC(19,4)    NOT NULL DEFAULT 0,
    PRIMARY KEY (Cod_Empresa, Cod_Almacen, Fecha, Caja)
);

-- Monthly sales per store and product family.
CREATE TABLE IF NOT EXISTS Almacen_Acumulados (
    Cod_Empresa     SMALLINT    NOT NULL,
    Cod_Almacen     INT         NOT NULL,
    Cod_Ejercicio   SMALLINT    NOT NULL,
    Mes             SMALLINT    NOT NULL,
    Familia         VARCHAR(10) NOT NULL,
    Ventas_Unidades NUMERIC(19,4)       NOT NULL DEFAULT 0,
    Ventas_Importe  NUMERIC(19,4)       NOT NULL DEFAULT 0,
    PRIMARY KEY (Cod_Empresa, Cod_Almacen, Cod_Ejercicio, Mes, Familia)
);
