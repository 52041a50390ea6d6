-- The change journal (SQL Server): one row per budget row an operation
-- changed, with the row before and after it. Run it on a company database
-- to add the journal; it touches nothing else, and running it again does
-- nothing. Without it the worksheet still works, with undo for the session
-- only and no history.

IF OBJECT_ID('dbo.Presupuestos_Cambios') IS NULL
CREATE TABLE dbo.Presupuestos_Cambios (
    Id            INT          IDENTITY(1,1) PRIMARY KEY,
    -- One user operation (a paste, an applied method, an import, an undo...).
    Operacion     BIGINT       NOT NULL,
    -- tecleo, pegado, borrado, metodo, dependientes, visibilidad, importacion, deshacer, rehacer
    Tipo          VARCHAR(20)  NOT NULL,
    Descripcion   VARCHAR(200) NOT NULL,
    Usuario       VARCHAR(128) NOT NULL,
    Fecha         DATETIME2    NOT NULL,
    Cod_Empresa   SMALLINT     NOT NULL,
    Cod_Ejercicio SMALLINT     NOT NULL,
    Cuenta        VARCHAR(12)  NOT NULL,
    Dpto          INT          NOT NULL,
    -- The row before the operation (Existia = 0: there was none).
    Existia       BIT          NOT NULL,
    A_M1 MONEY NOT NULL DEFAULT 0, A_M2 MONEY NOT NULL DEFAULT 0, A_M3 MONEY NOT NULL DEFAULT 0, A_M4 MONEY NOT NULL DEFAULT 0, A_M5 MONEY NOT NULL DEFAULT 0, A_M6 MONEY NOT NULL DEFAULT 0, A_M7 MONEY NOT NULL DEFAULT 0, A_M8 MONEY NOT NULL DEFAULT 0, A_M9 MONEY NOT NULL DEFAULT 0, A_M10 MONEY NOT NULL DEFAULT 0, A_M11 MONEY NOT NULL DEFAULT 0, A_M12 MONEY NOT NULL DEFAULT 0,
    A_Metodo INT NOT NULL DEFAULT 0, A_Manual INT NOT NULL DEFAULT 0, A_Valor MONEY NOT NULL DEFAULT 0, A_Ver BIT NOT NULL DEFAULT 1,
    -- The row after it (Existe = 0: the operation removed it).
    Existe        BIT          NOT NULL,
    D_M1 MONEY NOT NULL DEFAULT 0, D_M2 MONEY NOT NULL DEFAULT 0, D_M3 MONEY NOT NULL DEFAULT 0, D_M4 MONEY NOT NULL DEFAULT 0, D_M5 MONEY NOT NULL DEFAULT 0, D_M6 MONEY NOT NULL DEFAULT 0, D_M7 MONEY NOT NULL DEFAULT 0, D_M8 MONEY NOT NULL DEFAULT 0, D_M9 MONEY NOT NULL DEFAULT 0, D_M10 MONEY NOT NULL DEFAULT 0, D_M11 MONEY NOT NULL DEFAULT 0, D_M12 MONEY NOT NULL DEFAULT 0,
    D_Metodo INT NOT NULL DEFAULT 0, D_Manual INT NOT NULL DEFAULT 0, D_Valor MONEY NOT NULL DEFAULT 0, D_Ver BIT NOT NULL DEFAULT 1
)
GO

IF NOT EXISTS (SELECT 1 FROM sys.indexes WHERE name = 'IX_Presupuestos_Cambios_Fila')
CREATE INDEX IX_Presupuestos_Cambios_Fila ON dbo.Presupuestos_Cambios (Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, Id)
GO
