-- Retail database, Microsoft SQL Server (reached through three-part names, e.g. [Pelvor].dbo.Almacen_Acumulados).

CREATE TABLE dbo.Empresas_Contabilidad (
    Cod_Empresa  SMALLINT     NOT NULL,
    -- Company code in the accounting system.
    Cod_EmpresaC SMALLINT     NOT NULL,
    Nombre       VARCHAR(200) NOT NULL DEFAULT '',
    PRIMARY KEY (Cod_Empresa, Cod_EmpresaC)
);
GO

-- Daily figures per store and till.
CREATE TABLE dbo.Almacen_Acumulados_2 (
    Cod_Empresa  SMALLINT NOT NULL,
    Cod_Almacen  INT      NOT NULL,
    Fecha        DATE     NOT NULL,
    Caja         SMALLINT NOT NULL DEFAULT 1,
    Tickets      INT      NOT NULL DEFAULT 0,
    Importe      MONEY    NOT NULL DEFAULT 0,
    PRIMARY KEY (Cod_Empresa, Cod_Almacen, Fecha, Caja)
);
GO

-- Monthly sales per store and product family.
CREATE TABLE dbo.Almacen_Acumulados (
    Cod_Empresa     SMALLINT    NOT NULL,
    Cod_Almacen     INT         NOT NULL,
    Cod_Ejercicio   SMALLINT    NOT NULL,
    Mes             SMALLINT    NOT NULL,
    Familia         VARCHAR(10) NOT NULL,
    Ventas_Unidades MONEY       NOT NULL DEFAULT 0,
    Ventas_Importe  MONEY       NOT NULL DEFAULT 0,
    PRIMARY KEY (Cod_Empresa, Cod_Almacen, Cod_Ejercicio, Mes, Familia)
);
GO
