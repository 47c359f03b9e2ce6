#pragma once
// The data-access objects: Connection, Recordset with Fields/Field, Command with
// Parameters/Parameter — the small set of operations the component uses, with the platform's
// semantics. Method names follow the platform objects (PascalCase) because the service code and
// the front ends are written against them. The platform's EOF property is Eof() here: EOF is a
// macro of the C library.
//
// Objects are shared (std::shared_ptr): a record set keeps the physical connection it reads
// from alive until it is closed. None of the objects is thread-safe; a thread uses its own.

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "billdata/ado/com_error.h"
#include "billdata/ado/variant.h"

namespace billdata::ado {

namespace driver {
class Session;
class Cursor;
}  // namespace driver

enum CursorLocationEnum { adUseServer = 2, adUseClient = 3 };
enum CursorTypeEnum {
    adOpenUnspecified = -1,
    adOpenForwardOnly = 0,
    adOpenKeyset = 1,
    adOpenDynamic = 2,
    adOpenStatic = 3
};
enum LockTypeEnum {
    adLockUnspecified = -1,
    adLockReadOnly = 1,
    adLockPessimistic = 2,
    adLockOptimistic = 3,
    adLockBatchOptimistic = 4
};
enum CommandTypeEnum { adCmdUnspecified = -1, adCmdText = 1, adCmdTable = 2, adCmdStoredProc = 4 };
enum ExecuteOptionEnum { adOptionUnspecified = -1, adExecuteNoRecords = 0x80 };
enum DataTypeEnum {
    adEmpty = 0,
    adSmallInt = 2,
    adInteger = 3,
    adDouble = 5,
    adDate = 7,
    adBSTR = 8,
    adBoolean = 11,
    adVariant = 12,
    adVarChar = 200,
    adVarWChar = 202
};
enum ParameterDirectionEnum {
    adParamUnknown = 0,
    adParamInput = 1,
    adParamOutput = 2,
    adParamInputOutput = 3,
    adParamReturnValue = 4
};
enum ObjectStateEnum { adStateClosed = 0, adStateOpen = 1 };

class Recordset;
class Statement;

// A connection to one database, chosen by its connection string (see ConnectionString).
class Connection : public std::enable_shared_from_this<Connection> {
  public:
    static std::shared_ptr<Connection> create();
    ~Connection();

    // Opens the database; ComError (err::kConnection) for an unknown provider, a bad string or a
    // database that cannot be opened. Opening an open connection is an error (3705).
    void Open(std::string_view connection_string);
    // Closes; an open transaction is rolled back. Closing a closed connection does nothing.
    // Raises when work committed on the connection cannot be made durable (a failed sync of the
    // log); the connection is closed all the same.
    void Close();
    int State() const;  // adStateOpen / adStateClosed
    const std::string& ConnectionString() const { return connection_string_; }

    // Seconds that a statement run on this connection, or a record set opened on it, may make
    // its caller wait: for its result, then for each next row of a forward-only record set
    // (however long the whole list takes). A statement that outlives it is stopped and raises
    // ComError err::kTimeout "查询超时已过期", leaving the connection usable. 0 means no limit.
    // Default 30; Open takes the connection string's "Command Timeout" when it has one. A
    // negative value is error 3001.
    long CommandTimeout() const { return command_timeout_; }
    void SetCommandTimeout(long seconds);

    // Runs one statement. For a query the result is a forward-only, read-only record set over a
    // live cursor; otherwise a closed record set. `records_affected` gets the rows changed.
    // With `options` adExecuteNoRecords nothing is returned (nullptr) and rows are not read.
    std::shared_ptr<Recordset> Execute(std::string_view sql, long* records_affected = nullptr,
                                       long options = adOptionUnspecified);
    // The same for a built statement (its text); the driver may use what the statement knows of
    // its literals instead of reading them from the text again.
    std::shared_ptr<Recordset> Execute(const Statement& statement, long* records_affected = nullptr,
                                       long options = adOptionUnspecified);

    // One level of transaction; a second BeginTrans while one is open is an error.
    long BeginTrans();
    void CommitTrans();
    void RollbackTrans();
    bool InTransaction() const;

    // For Recordset and Command: the physical connection (ComError 3704 when closed).
    std::shared_ptr<driver::Session> session() const;

  private:
    friend class Command;
    friend class Recordset;
    Connection();
    // `built`, when given, is the statement `sql` is the text of.
    std::shared_ptr<Recordset> execute(std::string_view sql, long* records_affected,
                                       long timeout_seconds, const Statement* built = nullptr);
    // Runs a statement whose rows, if any, nobody reads (adExecuteNoRecords).
    void execute_without_records(std::string_view sql, const Statement* built,
                                 long* records_affected);
    // Writes `sql` to the statement log when the log was wanted as the connection opened.
    // A built statement's text is written only when the log wants it.
    void log(std::string_view sql, const Statement* built = nullptr) const;
    std::string connection_string_;
    std::shared_ptr<driver::Session> session_;
    long command_timeout_;
    bool log_ = false;  // sql_log::wanted() when opened
};

class Field {
  public:
    const std::string& Name() const { return name_; }
    DataTypeEnum Type() const { return type_; }
    long DefinedSize() const { return size_; }
    // The value of the current row: ComError 3021 at BOF/EOF or on a closed record set.
    const Variant& Value() const;
    // Sets the value of the current row (record sets the caller builds, after AddNew or on the
    // current row); ComError 3251 for a record set read from a database.
    void SetValue(Variant value);

  private:
    friend class Recordset;
    friend class Fields;
    Field(Recordset* owner, std::size_t index, std::string name, DataTypeEnum type, long size)
        : owner_(owner), index_(index), name_(std::move(name)), type_(type), size_(size) {}
    Recordset* owner_;
    std::size_t index_;
    std::string name_;
    DataTypeEnum type_;
    long size_;
};

class Fields {
  public:
    std::size_t Count() const { return fields_.size(); }
    // By name, without regard to case; ComError 3265 when there is no such field.
    Field& Item(std::string_view name);
    Field& Item(std::size_t index);      // ComError 3265 when out of range
    Field* Find(std::string_view name);  // nullptr when there is no such field
    // Adds a field to a record set the caller builds (before Open).
    void Append(std::string_view name, DataTypeEnum type, long defined_size = 0);

  private:
    friend class Recordset;
    explicit Fields(Recordset* owner) : owner_(owner) {}
    Recordset* owner_;
    std::vector<std::unique_ptr<Field>> fields_;
};

// A record set in one of three kinds:
//  - a forward-only cursor over a statement (Open on a connection string — a private connection
//    owned by the record set — or on a Connection; or Connection::Execute): rows are read as
//    the caller moves, never all held in memory; RecordCount is -1; MoveFirst runs the
//    statement again;
//  - a client-side static record set (CursorLocation adUseClient, or cursor type static or
//    keyset): all rows read at Open; MoveFirst and RecordCount work; SetActiveConnection(nullptr)
//    disconnects it, and it stays readable;
//  - a record set the caller builds: Fields().Append, Open(), AddNew, Field::SetValue, Update,
//    MoveFirst. This is how a front end hands bill lines to the component.
class Recordset : public std::enable_shared_from_this<Recordset> {
  public:
    static std::shared_ptr<Recordset> create();
    ~Recordset();

    void SetCursorLocation(CursorLocationEnum location);  // before Open
    CursorLocationEnum CursorLocation() const { return location_; }

    // Opens a query. Statements that would write are refused: record sets are read-only.
    void Open(std::string_view source, std::string_view connection_string,
              CursorTypeEnum cursor_type = adOpenUnspecified,
              LockTypeEnum lock_type = adLockUnspecified, long options = adCmdText);
    void Open(std::string_view source, const std::shared_ptr<Connection>& active_connection,
              CursorTypeEnum cursor_type = adOpenUnspecified,
              LockTypeEnum lock_type = adLockUnspecified, long options = adCmdText);
    // Opens a record set the caller builds, with the fields appended so far and no rows.
    void Open();
    void Close();
    int State() const;

    // Disconnecting (nullptr) is allowed for client-side record sets only.
    void SetActiveConnection(const std::shared_ptr<Connection>& connection);
    std::shared_ptr<Connection> ActiveConnection() const { return active_connection_; }

    bool Eof() const;
    bool Bof() const;
    void MoveNext();  // ComError 3021 when already at EOF
    void MoveFirst();
    long RecordCount() const;  // -1 for a forward-only cursor

    ::billdata::ado::Fields& GetFields() { return fields_; }
    Field& Fields(std::string_view name) { return fields_.Item(name); }
    Field& Fields(std::size_t index) { return fields_.Item(index); }

    // Record sets the caller builds: a new empty row becomes current; Update keeps it.
    void AddNew();
    void Update();

  private:
    friend class Field;
    friend class Connection;
    friend class Command;
    Recordset();
    void open_statement(std::string_view source, std::shared_ptr<driver::Session> session,
                        std::shared_ptr<Connection> connection, bool client_side,
                        long timeout_seconds);
    void attach_cursor(std::unique_ptr<driver::Cursor> cursor,
                       std::shared_ptr<driver::Session> session, bool client_side);
    void fetch();
    const Variant& value_at(std::size_t index) const {
        if (kind_ != Kind::Closed && !eof_) {
            const std::vector<Variant>& row =
                kind_ == Kind::Cursor ? current_ : rows_[static_cast<std::size_t>(position_)];
            if (index < row.size()) return row[index];
        }
        refuse_value_at(index);
    }
    [[noreturn]] void refuse_value_at(std::size_t index) const;
    void set_value_at(std::size_t index, Variant value);

    enum class Kind { Closed, Cursor, Static, Built };
    Kind kind_ = Kind::Closed;
    CursorLocationEnum location_ = adUseServer;
    ::billdata::ado::Fields fields_;
    std::shared_ptr<Connection> active_connection_;
    std::shared_ptr<driver::Session> session_;  // declared before cursor_: outlives it
    std::unique_ptr<driver::Cursor> cursor_;
    std::string source_;
    long timeout_ = 0;                        // the statement's command timeout (MoveFirst)
    std::vector<Variant> current_;            // Cursor kind: the current row
    std::vector<std::vector<Variant>> rows_;  // Static and Built kinds
    long position_ = 0;                       // index of the current row (Static, Built)
    bool eof_ = true;
    bool bof_ = true;
    bool editing_ = false;
};

inline const Variant& Field::Value() const {
    return owner_->value_at(index_);
}

// A record set the caller builds, with these fields (typed as variants) and rows, positioned on
// its first row: the way a front end hands bill lines to the component.
std::shared_ptr<Recordset> make_recordset(const std::vector<std::string>& fields,
                                          const std::vector<std::vector<Variant>>& rows);

class Parameter {
  public:
    const std::string& Name() const { return name_; }
    DataTypeEnum Type() const { return type_; }
    ParameterDirectionEnum Direction() const { return direction_; }
    long Size() const { return size_; }
    const Variant& Value() const { return value_; }
    void SetValue(Variant v) { value_ = std::move(v); }

  private:
    friend class Command;
    std::string name_;
    DataTypeEnum type_ = adEmpty;
    ParameterDirectionEnum direction_ = adParamInput;
    long size_ = 0;
    Variant value_;
};

class Parameters {
  public:
    void Append(std::shared_ptr<Parameter> p);
    std::size_t Count() const { return items_.size(); }
    // By name without regard to case ("@Rtnqty" finds "@RtnQty"); ComError 3265 if absent.
    Parameter& Item(std::string_view name);
    Parameter& Item(std::size_t index);

  private:
    friend class Command;
    std::vector<std::shared_ptr<Parameter>> items_;
};

// A stored-procedure call (CommandType adCmdStoredProc) or a statement (adCmdText).
class Command {
  public:
    static std::shared_ptr<Command> create();

    std::string CommandText;
    CommandTypeEnum CommandType = adCmdUnspecified;
    std::shared_ptr<Connection> ActiveConnection;

    std::shared_ptr<Parameter> CreateParameter(std::string_view name, DataTypeEnum type,
                                               ParameterDirectionEnum direction, long size = 0,
                                               Variant value = {});
    ::billdata::ado::Parameters& Parameters() { return parameters_; }

    // Seconds the command may run (as Connection::CommandTimeout says; a procedure call as a
    // whole). Until it is set, the command takes its ActiveConnection's at the time it runs, so
    // that a connection string's "Command Timeout" reaches the component's procedure calls too.
    // A negative value is error 3001.
    long CommandTimeout() const;
    void SetCommandTimeout(long seconds);

    // Runs the command on ActiveConnection; output parameters are written back. Returns the
    // rows the procedure yields as a forward-only record set, or a closed record set.
    std::shared_ptr<Recordset> Execute(long* records_affected = nullptr,
                                       long options = adOptionUnspecified);

  private:
    Command() = default;
    ::billdata::ado::Parameters parameters_;
    long timeout_ = -1;  // -1: the connection's
};

}  // namespace billdata::ado
