-- Management (accounting) database, Microsoft SQL Server.

CREATE TABLE dbo.Empresas (
    Cod_Empresa      SMALLINT     NOT NULL PRIMARY KEY,
    Nombre           VARCHAR(200) NOT NULL,
    Ejercicio_Actual SMALLINT     NOT NULL,
    -- Digits of an account at each level of the chart, from the first: "1,2,3,4,8".
    Digitos_Niveles  VARCHAR(50)  NOT NULL
);
GO

CREATE TABLE dbo.Departamentos (
    Cod_Empresa SMALLINT     NOT NULL,
    Codigo      INT          NOT NULL,
    Nombre      VARCHAR(200) NOT NULL,
    PRIMARY KEY (Cod_Empresa, Codigo)
);
GO

CREATE TABLE dbo.Cuentas (
    Cod_Empresa   SMALLINT     NOT NULL,
    Cod_Ejercicio SMALLINT     NOT NULL,
    Cuenta        VARCHAR(12)  NOT NULL,
    Nombre        VARCHAR(200) NOT NULL,
    PRIMARY KEY (Cod_Empresa, Cod_Ejercicio, Cuenta)
);
GO

CREATE TABLE dbo.Config_Balances (
    Cod_Empresa SMALLINT     NOT NULL,
    TipoBalance INT          NOT NULL,
    Codigo      INT          NOT NULL,
    -- 0: category (tree through Padre); 1: account line, Texto = 4-character prefix or concept code.
    Tipo        INT          NOT NULL,
    Texto       VARCHAR(200) NOT NULL,
    Padre       INT          NOT NULL DEFAULT 0,
    Ver         BIT          NOT NULL DEFAULT 1,
    PRIMARY KEY (Cod_Empresa, TipoBalance, Codigo)
);
GO

CREATE TABLE dbo.Presupuestos_Conceptos (
    Codigo VARCHAR(12)  NOT NULL PRIMARY KEY,
    Nombre VARCHAR(200) NOT NULL
);
GO

CREATE TABLE dbo.Presupuestos (
    Cod_Empresa         SMALLINT    NOT NULL,
    Cod_Ejercicio       SMALLINT    NOT NULL,
    Cuenta              VARCHAR(12) NOT NULL,
    Dpto                INT         NOT NULL,
    M1  MONEY NOT NULL DEFAULT 0, M2  MONEY NOT NULL DEFAULT 0, M3  MONEY NOT NULL DEFAULT 0,
    M4  MONEY NOT NULL DEFAULT 0, M5  MONEY NOT NULL DEFAULT 0, M6  MONEY NOT NULL DEFAULT 0,
    M7  MONEY NOT NULL DEFAULT 0, M8  MONEY NOT NULL DEFAULT 0, M9  MONEY NOT NULL DEFAULT 0,
    M10 MONEY NOT NULL DEFAULT 0, M11 MONEY NOT NULL DEFAULT 0, M12 MONEY NOT NULL DEFAULT 0,
    Metodo_Calculo      INT         NOT NULL DEFAULT 0,
    Modificacion_Manual INT         NOT NULL DEFAULT 0,
    Valor               MONEY       NOT NULL DEFAULT 0,
    Ver                 BIT         NOT NULL DEFAULT 1,
    PRIMARY KEY (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto)
);
GO
CREATE INDEX IX_Presupuestos_Metodo ON dbo.Presupuestos (Cod_Empresa, Cod_Ejercicio, Metodo_Calculo);
GO

-- Monthly debit (D) and credit (H) balances, company-wide and per department.
CREATE TABLE dbo.Acumulados (
    Cod_Empresa   SMALLINT    NOT NULL,
    Cod_Ejercicio SMALLINT    NOT NULL,
    Cuenta        VARCHAR(12) NOT NULL,
    D1 MONEY NOT NULL DEFAULT 0, D2 MONEY NOT NULL DEFAULT 0, D3 MONEY NOT NULL DEFAULT 0,
    D4 MONEY NOT NULL DEFAULT 0, D5 MONEY NOT NULL DEFAULT 0, D6 MONEY NOT NULL DEFAULT 0,
    D7 MONEY NOT NULL DEFAULT 0, D8 MONEY NOT NULL DEFAULT 0, D9 MONEY NOT NULL DEFAULT 0,
    D10 MONEY NOT NULL DEFAULT 0, D11 MONEY NOT NULL DEFAULT 0, D12 MONEY NOT NULL DEFAULT 0,
    H1 MONEY NOT NULL DEFAULT 0, H2 MONEY NOT NULL DEFAULT 0, H3 MONEY NOT NULL DEFAULT 0,
    H4 MONEY NOT NULL DEFAULT 0, H5 MONEY NOT NULL DEFAULT 0, H6 MONEY NOT NULL DEFAULT 0,
    H7 MONEY NOT NULL DEFAULT 0, H8 MONEY NOT NULL DEFAULT 0, H9 MONEY NOT NULL DEFAULT 0,
    H10 MONEY NOT NULL DEFAULT 0, H11 MONEY NOT NULL DEFAULT 0, H12 MONEY NOT NULL DEFAULT 0,
    PRIMARY KEY (Cod_Empresa, Cod_Ejercicio, Cuenta)
);
GO

CREATE TABLE dbo.Acumulados_Dpto (
    Cod_Empresa   SMALLINT    NOT NULL,
    Cod_Ejercicio SMALLINT    NOT NULL,
    Cuenta        VARCHAR(12) NOT NULL,
    Dpto          INT         NOT NULL,
    D1 MONEY NOT NULL DEFAULT 0, D2 MONEY NOT NULL DEFAULT 0, D3 MONEY NOT NULL DEFAULT 0,
    D4 MONEY NOT NULL DEFAULT 0, D5 MONEY NOT NULL DEFAULT 0, D6 MONEY NOT NULL DEFAULT 0,
    D7 MONEY NOT NULL DEFAULT 0, D8 MONEY NOT NULL DEFAULT 0, D9 MONEY NOT NULL DEFAULT 0,
    D10 MONEY NOT NULL DEFAULT 0, D11 MONEY NOT NULL DEFAULT 0, D12 MONEY NOT NULL DEFAULT 0,
    H1 MONEY NOT NULL DEFAULT 0, H2 MONEY NOT NULL DEFAULT 0, H3 MONEY NOT NULL DEFAULT 0,
    H4 MONEY NOT NULL DEFAULT 0, H5 MONEY NOT NULL DEFAULT 0, H6 MONEY NOT NULL DEFAULT 0,
    H7 MONEY NOT NULL DEFAULT 0, H8 MONEY NOT NULL DEFAULT 0, H9 MONEY NOT NULL DEFAULT 0,
    H10 MONEY NOT NULL DEFAULT 0, H11 MONEY NOT NULL DEFAULT 0, H12 MONEY NOT NULL DEFAULT 0,
    PRIMARY KEY (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto)
);
GO

-- Name of the retail database, as used in three-part names ("[Pelvor]").
CREATE TABLE dbo.Configuracion (
    BDPelvor VARCHAR(128) NOT NULL
);
GO
