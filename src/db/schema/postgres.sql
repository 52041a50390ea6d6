-- Management (accounting) database, PostgreSQL.
-- Names unquoted, so that they fold to lower case and the composed texts
-- find them whatever case they write. Amounts (SQL Server's money type) are
-- NUMERIC(19,4): ten-thousandths, exactly; flags (its bit type) are
-- SMALLINT, which compares with 0 and 1 as the composed texts do.

CREATE TABLE IF NOT EXISTS Empresas (
    Cod_Empresa      SMALLINT     NOT NULL PRIMARY KEY,
    Nombre           VARCHAR(200) NOT NULL,
    Ejercicio_Actual SMALLINT     NOT NULL,
    -- Digits of an account at each level of the chart, from the first: "1,2,3,4,8".
    Digitos_Niveles  VARCHAR(50)  NOT NULL
);

CREATE TABLE IF NOT EXISTS Departamentos (
    Cod_Empresa SMALLINT     NOT NULL,
    Codigo      INT          NOT NULL,
    Nombre      VARCHAR(200) NOT NULL,
    PRIMARY KEY (Cod_Empresa, Codigo)
);

CREATE TABLE IF NOT EXISTS Cuentas (
    Cod_Empresa   SMALLINT     NOT NULL,
    Cod_Ejercicio SMALLINT     NOT NULL,
    Cuenta        VARCHAR(12)  NOT NULL,
    Nombre        VARCHAR(200) NOT NULL,
    PRIMARY KEY (Cod_Empresa, Cod_Ejercicio, Cuenta)
);

CREATE TABLE IF NOT EXISTS Config_Balances (
    Cod_Empresa SMALLINT     NOT NULL,
    TipoBalance INT          NOT NULL,
    Codigo      INT          NOT NULL,
    -- 0: category (tree through Padre); 1: account line, Texto = 4-character prefix or concept code.
    Tipo        INT          NOT NULL,
    Texto       VARCHAR(200) NOT NULL,
    Padre       INT          NOT NULL DEFAULT 0,
    Ver         SMALLINT          NOT NULL DEFAULT 1,
    PRIMARY KEY (Cod_Empresa, TipoBalance, Codigo)
);

CREATE TABLE IF NOT EXISTS Presupuestos_Conceptos (
    Codigo VARCHAR(12)  NOT NULL PRIMARY KEY,
    Nombre VARCHAR(200) NOT NULL
);

CREATE TABLE IF NOT EXISTS Presupuestos (
    Cod_Empresa         SMALLINT    NOT NULL,
    Cod_Ejercicio       SMALLINT    NOT NULL,
    Cuenta              VARCHAR(12) NOT NULL,
    Dpto                INT         NOT NULL,
    M1  NUMERIC(19,4) NOT NULL DEFAULT 0, M2  NUMERIC(19,4) NOT NULL DEFAULT 0, M3  NUMERIC(19,4) NOT NULL DEFAULT 0,
    M4  NUMERIC(19,4) NOT NULL DEFAULT 0, M5  NUMERIC(19,4) NOT NULL DEFAULT 0, M6  NUMERIC(19,4) NOT NULL DEFAULT 0,
    M7  NUMERIC(19,4) NOT NULL DEFAULT 0, M8  NUMERIC(19,4) NOT NULL DEFAULT 0, M9  NUMERIC(19,4) NOT NULL DEFAULT 0,
    M10 NUMERIC(19,4) NOT NULL DEFAULT 0, M11 NUMERIC(19,4) NOT NULL DEFAULT 0, M12 NUMERIC(19,4) NOT NULL DEFAULT 0,
    Metodo_Calculo      INT         NOT NULL DEFAULT 0,
    Modificacion_Manual INT         NOT NULL DEFAULT 0,
    Valor               NUMERIC(19,4)       NOT NULL DEFAULT 0,
    Ver                 SMALLINT         NOT NULL DEFAULT 1,
    PRIMARY KEY (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto)
);
CREATE INDEX IF NOT EXISTS IX_Presupuestos_Metodo ON Presupuestos (Cod_Empresa, Cod_Ejercicio, Metodo_Calculo);

-- Monthly debit (D) and credit (H) balances, company-wide and per department.
CREATE TABLE IF NOT EXISTS Acumulados (
    Cod_Empresa   SMALLINT    NOT NULL,
    Cod_Ejercicio SMALLINT    NOT NULL,
    Cuenta        VARCHAR(12) NOT NULL,
    D1 NUMERIC(19,4) NOT NULL DEFAULT 0, D2 NUMERIC(19,4) NOT NULL DEFAULT 0, D3 NUMERIC(19,4) NOT NULL DEFAULT 0,
    D4 NUMERIC(19,4) NOT NULL DEFAULT 0, D5 NUMERIC(19,4) NOT NULL DEFAULT 0, D6 NUMERIC(19,4) NOT NULL DEFAULT 0,
    D7 NUMERIC(19,4) NOT NULL DEFAULT 0, D8 NUMERIC(19,4) NOT NULL DEFAULT 0, D9 NUMERIC(19,4) NOT NULL DEFAULT 0,
    D10 NUMERIC(19,4) NOT NULL DEFAULT 0, D11 NUMERIC(19,4) NOT NULL DEFAULT 0, D12 NUMERIC(19,4) NOT NULL DEFAULT 0,
    H1 NUMERIC(19,4) NOT NULL DEFAULT 0, H2 NUMERIC(19,4) NOT NULL DEFAULT 0, H3 NUMERIC(19,4) NOT NULL DEFAULT 0,
    H4 NUMERIC(19,4) NOT NULL DEFAULT 0, H5 NUMERIC(19,4) NOT NULL DEFAULT 0, H6 NUMERIC(19,4) NOT NULL DEFAULT 0,
    H7 NUMERIC(19,4) NOT NULL DEFAULT 0, H8 NUMERIC(19,4) NOT NULL DEFAULT 0, H9 NUMERIC(19,4) NOT NULL DEFAULT 0,
    H10 NUMERIC(19,4) NOT NULL DEFAULT 0, H11 NUMERIC(19,4) NOT NULL DEFAULT 0, H12 NUMERIC(19,4) NOT NULL DEFAULT 0,
    PRIMARY KEY (Cod_Empresa, Cod_Ejercicio, Cuenta)
);

CREATE TABLE IF NOT EXISTS Acumulados_Dpto (
    Cod_Empresa   SMALLINT    NOT NULL,
    Cod_Ejercicio SMALLINT    NOT NULL,
    Cuenta        VARCHAR(12) NOT NULL,
    Dpto          INT         NOT NULL,
    D1 NUMERIC(19,4) NOT NULL DEFAULT 0, D2 NUMERIC(19,4) NOT NULL DEFAULT 0, D3 NUMERIC(19,4) NOT NULL DEFAULT 0,
    D4 NUMERIC(19,4) NOT NULL DEFAULT 0, D5 NUMERIC(19,4) NOT NULL DEFAULT 0, D6 NUMERIC(19,4) NOT NULL DEFAULT 0,
    D7 NUMERIC(19,4) NOT NULL DEFAULT 0, D8 NUMERIC(19,4) NOT NULL DEFAULT 0, D9 NUMERIC(19,4) NOT NULL DEFAULT 0,
    D10 NUMERIC(19,4) NOT NULL DEFAULT 0, D11 NUMERIC(19,4) NOT NULL DEFAULT 0, D12 NUMERIC(19,4) NOT NULL DEFAULT 0,
    H1 NUMERIC(19,4) NOT NULL DEFAULT 0, H2 NUMERIC(19,4) NOT NULL DEFAULT 0, H3 NUMERIC(19,4) NOT NULL DEFAULT 0,
    H4 NUMERIC(19,4) NOT NULL DEFAULT 0, H5 NUMERIC(19,4) NOT NULL DEFAULT 0, H6 NUMERIC(19,4) NOT NULL DEFAULT 0,
    H7 NUMERIC(19,4) NOT NULL DEFAULT 0, H8 NUMERIC(19,4) NOT NULL DEFAULT 0, H9 NUMERIC(19,4) NOT NULL DEFAULT 0,
    H10 NUMERIC(19,4) NOT NULL DEFAULT 0, H11 NUMERIC(19,4) NOT NULL DEFAULT 0, H12 NUMERIC(19,4) NOT NULL DEFAULT 0,
    PRIMARY KEY (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto)
);

-- Name of the retail database, as used in three-part names ("[Pelvor]").
CREATE TABLE IF NOT EXISTS Configuracion (
    BDPelvor VARCHAR(128) NOT NULL
);
