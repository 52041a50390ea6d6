-- The change journal (SQLite). Created on open when the file lacks it.
--
-- One row per user operation (a paste, an applied method, an import, an
-- undo...): what it was, who did it and when. Numbered inside the
-- transaction that writes it.
CREATE TABLE IF NOT EXISTS Presupuestos_Operaciones (
    Id            BIGINT       NOT NULL PRIMARY KEY,
    Cod_Empresa   SMALLINT     NOT NULL,
    -- tecleo, pegado, borrado, metodo, dependientes, visibilidad, importacion, deshacer, rehacer
    Tipo          VARCHAR(20)  NOT NULL,
    Descripcion   VARCHAR(200) NOT NULL,
    Usuario       VARCHAR(128) NOT NULL,
    Fecha         DATETIME     NOT NULL
);

-- One row per budget row an operation changed, with the row before and
-- after it. Amounts (months and value) are counts of ten-thousandths:
-- SQLite has no exact decimal type, and a count is also smaller on disk. What the operation shares is kept once, above: an import of
-- tens of thousands of rows writes only their figures here.
CREATE TABLE IF NOT EXISTS Presupuestos_Cambios (
    Id            INTEGER      PRIMARY KEY,
    Operacion     BIGINT       NOT NULL,
    Cod_Empresa   SMALLINT     NOT NULL,
    Cod_Ejercicio SMALLINT     NOT NULL,
    Cuenta        VARCHAR(12)  NOT NULL,
    Dpto          INT          NOT NULL,
    -- The row before the operation (Existia = 0: there was none).
    Existia       BIT          NOT NULL,
    A_M1 BIGINT NOT NULL DEFAULT 0, A_M2 BIGINT NOT NULL DEFAULT 0, A_M3 BIGINT NOT NULL DEFAULT 0, A_M4 BIGINT NOT NULL DEFAULT 0, A_M5 BIGINT NOT NULL DEFAULT 0, A_M6 BIGINT NOT NULL DEFAULT 0, A_M7 BIGINT NOT NULL DEFAULT 0, A_M8 BIGINT NOT NULL DEFAULT 0, A_M9 BIGINT NOT NULL DEFAULT 0, A_M10 BIGINT NOT NULL DEFAULT 0, A_M11 BIGINT NOT NULL DEFAULT 0, A_M12 BIGINT NOT NULL DEFAULT 0,
    A_Metodo INT NOT NULL DEFAULT 0, A_Manual INT NOT NULL DEFAULT 0, A_Valor BIGINT NOT NULL DEFAULT 0, A_Ver BIT NOT NULL DEFAULT 1,
    -- The row after it (Existe = 0: the operation removed it).
    Existe        BIT          NOT NULL,
    D_M1 BIGINT NOT NULL DEFAULT 0, D_M2 BIGINT NOT NULL DEFAULT 0, D_M3 BIGINT NOT NULL DEFAULT 0, D_M4 BIGINT NOT NULL DEFAULT 0, D_M5 BIGINT NOT NULL DEFAULT 0, D_M6 BIGINT NOT NULL DEFAULT 0, D_M7 BIGINT NOT NULL DEFAULT 0, D_M8 BIGINT NOT NULL DEFAULT 0, D_M9 BIGINT NOT NULL DEFAULT 0, D_M10 BIGINT NOT NULL DEFAULT 0, D_M11 BIGINT NOT NULL DEFAULT 0, D_M12 BIGINT NOT NULL DEFAULT 0,
    D_Metodo INT NOT NULL DEFAULT 0, D_Manual INT NOT NULL DEFAULT 0, D_Valor BIGINT NOT NULL DEFAULT 0, D_Ver BIT NOT NULL DEFAULT 1
);
-- A cell's history is found by its account and department; the few rows of
-- other years and companies that share them are left out after. The row's
-- Id comes with every entry, so the newest comes first without sorting.
CREATE INDEX IF NOT EXISTS IX_Presupuestos_Cambios_Fila ON Presupuestos_Cambios (Cuenta, Dpto);
