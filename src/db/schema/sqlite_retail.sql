-- Retail database, SQLite (attached under its own name, e.g. Pelvor).

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
    Importe      MONEY    NOT NULL DEFAULT 0,
    PRIMARY KEY (Cod_Empresa, Cod_Almacen, Fecha, Caja)
);

-- Monthly sales per store and product family.
CREATE TABLE IF NOT EXISTS Almacen_Acumulados (
    Cod_Empresa     SMALLINT    NOT NULL,
    Cod_Almacen     INT         NOT NULL,
    Cod_Ejercicio   SMALLINT    NOT NULL,
    Mes             SMALLINT    NOT NULL,
    Familia         VARCHAR(10) NOT NULL,
    Ventas_Unidades MONEY       NOT NULL DEFAULT 0,
    Ventas_Importe  MONEY       NOT NULL DEFAULT 0,
    PRIMARY KEY (Cod_Empresa, Cod_Almacen, Cod_Ejercicio, Mes, Familia)
);
