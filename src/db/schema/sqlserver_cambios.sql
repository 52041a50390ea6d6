-- The change journal (SQL Server). Run it on a company database to add the
-- journal; it touches nothing else, and running it again does nothing.
-- Without it the worksheet still works, with undo for the session only and
-- no history.
--
-- A database that has the journal's first layout (every row carrying its
-- operation's kind, user and time) is brought to this one, keeping every row.

IF OBJECT_ID('dbo.Presupuestos_Cambios') IS NOT NULL AND COL_LENGTH('dbo.Presupuestos_Cambios', 'Tipo') IS NOT NULL
    EXEC sp_rename 'dbo.Presupuestos_Cambios', 'Presupuestos_Cambios_Anterior'
GO

IF OBJECT_ID('dbo.Presupuestos_Cambios_Anterior') IS NOT NULL
    AND EXISTS (SELECT 1 FROM sys.indexes WHERE name = 'IX_Presupuestos_Cambios_Fila'
                AND object_id = OBJECT_ID('dbo.Presupuestos_Cambios_Anterior'))
    DROP INDEX IX_Presupuestos_Cambios_Fila ON dbo.Presupuestos_Cambios_Anterior
GO

-- One row per user operation (a paste, an applied method, an import, an
-- undo...): what it was, who did it and when.
IF OBJECT_ID('dbo.Presupuestos_Operaciones') IS NULL
CREATE TABLE dbo.Presupuestos_Operaciones (
    Id            BIGINT       NOT NULL PRIMARY KEY,
    Cod_Empresa   SMALLINT     NOT NULL,
    -- tecleo, pegado, borrado, metodo, dependientes, visibilidad, importacion, deshacer, rehacer
    Tipo          VARCHAR(20)  NOT NULL,
    Descripcion   VARCHAR(200) NOT NULL,
    Usuario       VARCHAR(128) NOT NULL,
    Fecha         DATETIME2    NOT NULL
)
GO

-- One row per budget row an operation changed, with the row before and after it.
IF OBJECT_ID('dbo.Presupuestos_Cambios') IS NULL
CREATE TABLE dbo.Presupuestos_Cambios (
    Id            BIGINT       IDENTITY(1,1) PRIMARY KEY,
    Operacion     BIGINT       NOT NULL,
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
CREATE INDEX IX_Presupuestos_Cambios_Fila ON dbo.Presupuestos_Cambios (Cuenta, Dpto)
GO

IF OBJECT_ID('dbo.Presupuestos_Cambios_Anterior') IS NOT NULL
BEGIN
    BEGIN TRANSACTION
    INSERT INTO dbo.Presupuestos_Operaciones (Id, Cod_Empresa, Tipo, Descripcion, Usuario, Fecha)
        SELECT Operacion, MIN(Cod_Empresa), MIN(Tipo), MIN(Descripcion), MIN(Usuario), MIN(Fecha)
        FROM dbo.Presupuestos_Cambios_Anterior GROUP BY Operacion
    SET IDENTITY_INSERT dbo.Presupuestos_Cambios ON
    INSERT INTO dbo.Presupuestos_Cambios (Id, Operacion, Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, Existia,
            A_M1, A_M2, A_M3, A_M4, A_M5, A_M6, A_M7, A_M8, A_M9, A_M10, A_M11, A_M12, A_Metodo, A_Manual, A_Valor, A_Ver, Existe,
            D_M1, D_M2, D_M3, D_M4, D_M5, D_M6, D_M7, D_M8, D_M9, D_M10, D_M11, D_M12, D_Metodo, D_Manual, D_Valor, D_Ver)
        SELECT Id, Operacion, Cod_Empresa, Cod_Ejercicio, Cuenta, Dpto, Existia,
            A_M1, A_M2, A_M3, A_M4, A_M5, A_M6, A_M7, A_M8, A_M9, A_M10, A_M11, A_M12, A_Metodo, A_Manual, A_Valor, A_Ver, Existe,
            D_M1, D_M2, D_M3, D_M4, D_M5, D_M6, D_M7, D_M8, D_M9, D_M10, D_M11, D_M12, D_Metodo, D_Manual, D_Valor, D_Ver
        FROM dbo.Presupuestos_Cambios_Anterior
    SET IDENTITY_INSERT dbo.Presupuestos_Cambios OFF
    DROP TABLE dbo.Presupuestos_Cambios_Anterior
    COMMIT TRANSACTION
END
GO

-- The operations' numbers: a sequence, which no two users' transactions
-- share. A journal that had operations before it goes on after the highest.
IF OBJECT_ID('dbo.Presupuestos_Operaciones_Id') IS NULL
BEGIN
    DECLARE @inicio BIGINT = (SELECT ISNULL(MAX(Id), 0) + 1 FROM dbo.Presupuestos_Operaciones)
    DECLARE @crear NVARCHAR(200) = N'CREATE SEQUENCE dbo.Presupuestos_Operaciones_Id AS BIGINT START WITH '
        + CAST(@inicio AS NVARCHAR(20))
    EXEC (@crear)
END
GO

-- The worksheets read each operation another user committed by its number.
IF NOT EXISTS (SELECT 1 FROM sys.indexes WHERE name = 'IX_Presupuestos_Cambios_Operacion')
CREATE INDEX IX_Presupuestos_Cambios_Operacion ON dbo.Presupuestos_Cambios (Operacion)
GO
