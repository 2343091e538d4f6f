// The callable functions of the ODBC function set, one per row of its function table
// (odbc_functions.hpp).
#pragma once

#include "qzfuncs.hpp"

// Connections, diagnostics and settings. Each returns the call's status.
int Connect(const char *ConnSpec, int *ConnId);
int Disconnect(int ConnId);
int GetConnection(int ConnId, QzStr *ConnSpec);
int SetConnectOption(int ConnId, int Option, QzVarArgs va);
int SetAutocommit(int ConnId, int Mode);
int Commit(int ConnId);
int Rollback(int ConnId);

// Statements, columns, parameters and data.
int Prepare(int ConnId, const char *Sql, int *StmtId);
int ExecDirect(int ConnId, const char *Sql, int *StmtId);
int Tables(int ConnId, const char *Qual, const char *Owner, const char *Name, const char *Type,
           int *StmtId);
int Columns(int ConnId, const char *Qual, const char *Owner, const char *Name, const char *Column,
            int *StmtId);
int DropStatement(int StmtId);
int GetNumColumns(int StmtId, int *NumColumns);
int GetColumnTitle(int StmtId, int ColNumber, QzStr *ColTitle);
int GetColumnVarName(int StmtId, int ColNumber, QzStr *ColName);
int GetColumnType(int StmtId, int ColNumber, int *ColType);
int SetColumnType(int StmtId, int ColNumber, int ColType);
int GetColumnPrecision(int StmtId, int ColNumber, int *ColPrec);
int GetColumnScale(int StmtId, int ColNumber, int *ColScale);
int GetColumnNullable(int StmtId, int ColNumber, int *ColNull);
int Execute(int StmtId, QzVarArgs va);
int SetParam(int StmtId, QzVarArgs va);
int GetParamType(int StmtId, int ParNumber, int *ParType);
int GetParamPrecision(int StmtId, int ParNumber, int *ParPrec);
int GetParamScale(int StmtId, int ParNumber, int *ParScale);
int GetParamNullable(int StmtId, int ParNumber, int *ParNull);
int Fetch(int StmtId, QzVarArgs va);
int IsNull(int StmtId, int ColNumber, int *IsNull);
int GetData(int StmtId, int ColNumber, QzVarArgs va);
int RowCount(int StmtId, int *NumRows);

// Many rows per call.
int FetchArray(int StmtId, int *Rows, QzStr *RowBuffers);
int ExecuteArray(int StmtId, int Rows, int *Done, QzVarArgs va);

// Diagnostics, settings, version texts.
int GetError(QzStr *Message, QzStr *SqlState, int *NativeCode, int *HasData);
int SetTextColumnSize(int DefaultSize, int MaxSize);
int LogFlags(const char *LogFlags);
int LogFile(const char *LogFile);
int DllDebug(int DebugLevel);
int BuildID(QzStr *Str);
int VersionID(QzStr *Str);
int Revision(QzStr *Str);
