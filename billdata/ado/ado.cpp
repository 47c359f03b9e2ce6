#include "billdata/ado/ado.h"

#include <utility>
#include <vector>

#include "billdata/ado/driver.h"
#include "billdata/ado/sql_log.h"
#include "billdata/util/text.h"

namespace billdata::ado {

namespace {

// Platform errors of the data layer that the shared table of descriptions does not carry.
constexpr std::int32_t kInvalidArgument = 3001;
constexpr std::int32_t kIllegalOperation = 3219;
constexpr std::int32_t kNotUpdatable = 3251;
constexpr std::int32_t kAlreadyInCollection = 3367;
constexpr std::int32_t kObjectOpen = 3705;
constexpr std::int32_t kNoConnection = 3709;

ComError invalid_argument() {
    return ComError(kInvalidArgument,
                    "参数类型不正确，或不在可以接受的范围之内，或与其他参数冲突。");
}
ComError illegal_operation() {
    return ComError(kIllegalOperation, "在此上下文中不允许操作。");
}
ComError not_updatable() {
    return ComError(kNotUpdatable,
                    "当前记录集不支持更新。这可能是提供者的限制，也可能是选定锁定类型的限制。");
}
ComError object_open() {
    return ComError(kObjectOpen, "对象打开时，不允许操作。");
}
ComError no_connection() {
    return ComError(kNoConnection, "连接无法用于执行此操作。在此上下文中它可能已被关闭或无效。");
}

using util::iequals;

DataTypeEnum field_type(VarType t) {
    switch (t) {
        case VarType::Boolean:
            return adBoolean;
        case VarType::Integer:
            return adSmallInt;
        case VarType::Long:
            return adInteger;
        case VarType::Double:
            return adDouble;
        case VarType::Date:
            return adDate;
        case VarType::String:
            return adVarWChar;
        default:
            return adVariant;
    }
}

VarType var_type(DataTypeEnum t) {
    switch (t) {
        case adSmallInt:
            return VarType::Integer;
        case adInteger:
            return VarType::Long;
        case adDouble:
            return VarType::Double;
        case adDate:
            return VarType::Date;
        case adBoolean:
            return VarType::Boolean;
        case adBSTR:
        case adVarChar:
        case adVarWChar:
            return VarType::String;
        default:
            return VarType::Empty;
    }
}

// An output value as the parameter's declared type holds it (a procedure may hand back a Long
// for an adDouble parameter).
Variant coerce(const Variant& v, DataTypeEnum t) {
    if (v.is_null() || v.is_empty()) return v;
    switch (t) {
        case adSmallInt:
            return Variant(v.to_int16());
        case adInteger:
            return Variant(v.to_int32());
        case adDouble:
            return Variant(v.to_double());
        case adDate:
            return Variant(v.to_date());
        case adBoolean:
            return Variant(v.to_bool());
        case adBSTR:
        case adVarChar:
        case adVarWChar:
            return Variant(v.to_string());
        default:
            return v;
    }
}

// The statement a record set or command runs for its source text.
std::string statement_for(std::string_view source, long options) {
    switch (options) {
        case adCmdText:
        case adCmdUnspecified:
            return std::string(source);
        case adCmdTable:
            return "select * from " + std::string(source);
        default:
            throw ComError(err::kDatabase,
                           "a record set opens a statement or a table only, not "
                           "command type " +
                               std::to_string(options));
    }
}

}  // namespace

// ---- Connection ---------------------------------------------------------------------------

Connection::Connection() : command_timeout_(kDefaultCommandTimeout) {}

std::shared_ptr<Connection> Connection::create() {
    return std::shared_ptr<Connection>(new Connection());
}

Connection::~Connection() {
    try {
        Close();
    } catch (...) {
        // A destructor must not throw; the engine rolls back what is left anyway.
    }
}

void Connection::Open(std::string_view connection_string) {
    if (session_) throw object_open();
    // Every operation opens a connection of its own with the session's string: the string is
    // parsed and its driver found once per thread, not at every open.
    struct Parsed {
        ado::ConnectionString cs;
        std::shared_ptr<driver::Driver> driver;
        long timeout;  // -1 when the string sets none
    };
    thread_local std::vector<Parsed> recent;  // newest last
    const Parsed* parsed = nullptr;
    for (auto it = recent.rbegin(); it != recent.rend() && !parsed; ++it)
        if (it->cs.text() == connection_string) parsed = &*it;
    if (!parsed) {
        auto cs = ado::ConnectionString::parse(connection_string);
        const long timeout = cs.has("command timeout") ? cs.command_timeout() : -1;
        auto drv = driver::find_driver(cs);
        if (recent.size() >= 4) recent.erase(recent.begin());
        recent.push_back({std::move(cs), std::move(drv), timeout});
        parsed = &recent.back();
    }
    session_ = parsed->driver->open(parsed->cs);
    connection_string_ = std::string(connection_string);
    log_ = sql_log::wanted();
    if (parsed->timeout >= 0) command_timeout_ = parsed->timeout;
}

void Connection::SetCommandTimeout(long seconds) {
    if (seconds < 0) throw invalid_argument();
    command_timeout_ = seconds;
}

void Connection::Close() {
    if (!session_) return;
    auto s = std::move(session_);
    session_.reset();
    // A record set may still hold the physical connection; the transaction must not outlive
    // this object either way.
    if (s->in_transaction()) {
        try {
            s->rollback();
        } catch (const ComError&) {
            // Nothing more can be done about the transaction; what was committed before it still
            // has to reach the disk.
        }
    }
    // A failure to make committed work durable is the caller's to hear of.
    s->close();
}

void Connection::log(std::string_view sql, const Statement* built) const {
    if (log_) sql_log::write(built ? built->text() : sql);
}

int Connection::State() const {
    return session_ ? adStateOpen : adStateClosed;
}

std::shared_ptr<driver::Session> Connection::session() const {
    if (!session_) throw ComError::platform(err::kObjectClosed);
    return session_;
}

std::shared_ptr<Recordset> Connection::Execute(std::string_view sql, long* records_affected,
                                               long options) {
    if (options != adOptionUnspecified && (options & adExecuteNoRecords)) {
        execute_without_records(sql, nullptr, records_affected);
        return nullptr;
    }
    return execute(sql, records_affected, command_timeout_);
}

std::shared_ptr<Recordset> Connection::Execute(const Statement& statement, long* records_affected,
                                               long options) {
    if (options != adOptionUnspecified && (options & adExecuteNoRecords)) {
        execute_without_records({}, &statement, records_affected);
        return nullptr;
    }
    return execute({}, records_affected, command_timeout_, &statement);
}

void Connection::execute_without_records(std::string_view sql, const Statement* built,
                                         long* records_affected) {
    auto s = session();
    log(sql, built);
    long affected = -1;
    driver::ExecOptions exec;
    exec.timeout_seconds = command_timeout_;
    // A cursor, if any, is let go unread.
    if (built)
        s->execute_statement(*built, exec, &affected);
    else
        s->execute(sql, exec, &affected);
    if (records_affected) *records_affected = affected;
}

std::shared_ptr<Recordset> Connection::execute(std::string_view sql, long* records_affected,
                                               long timeout_seconds, const Statement* built) {
    auto s = session();
    log(sql, built);
    long affected = -1;
    driver::ExecOptions options;
    options.timeout_seconds = timeout_seconds;
    auto cursor = built ? s->execute_statement(*built, options, &affected)
                        : s->execute(sql, options, &affected);
    if (records_affected) *records_affected = affected;
    auto rs = Recordset::create();
    if (cursor) {
        rs->active_connection_ = shared_from_this();
        rs->source_ = std::string(built ? built->text() : sql);
        rs->timeout_ = timeout_seconds;
        rs->attach_cursor(std::move(cursor), s, false);
    }
    return rs;
}

long Connection::BeginTrans() {
    auto s = session();
    if (s->in_transaction())
        throw ComError(err::kDatabase, "a transaction is already open on this connection");
    s->begin();
    return 1;
}

void Connection::CommitTrans() {
    session()->commit();
}

void Connection::RollbackTrans() {
    session()->rollback();
}

bool Connection::InTransaction() const {
    return session_ && session_->in_transaction();
}

// ---- Field / Fields -----------------------------------------------------------------------

void Field::SetValue(Variant value) {
    owner_->set_value_at(index_, std::move(value));
}

Field* Fields::Find(std::string_view name) {
    for (auto& f : fields_)
        if (iequals(f->name_, name)) return f.get();
    return nullptr;
}

Field& Fields::Item(std::string_view name) {
    if (Field* f = Find(name)) return *f;
    throw ComError::platform(err::kItemNotFound);
}

Field& Fields::Item(std::size_t index) {
    if (index >= fields_.size()) throw ComError::platform(err::kItemNotFound);
    return *fields_[index];
}

void Fields::Append(std::string_view name, DataTypeEnum type, long defined_size) {
    if (owner_->State() != adStateClosed) throw illegal_operation();
    if (Find(name)) throw ComError(kAlreadyInCollection, "对象已经在集合中。不能追加。");
    fields_.push_back(std::unique_ptr<Field>(
        new Field(owner_, fields_.size(), std::string(name), type, defined_size)));
}

// ---- Recordset ----------------------------------------------------------------------------

Recordset::Recordset() : fields_(this) {}

std::shared_ptr<Recordset> Recordset::create() {
    return std::shared_ptr<Recordset>(new Recordset());
}

Recordset::~Recordset() {
    cursor_.reset();
    session_.reset();
}

void Recordset::SetCursorLocation(CursorLocationEnum location) {
    if (kind_ != Kind::Closed) throw object_open();
    location_ = location;
}

void Recordset::Open(std::string_view source, std::string_view connection_string,
                     CursorTypeEnum cursor_type, LockTypeEnum /*lock_type*/, long options) {
    if (kind_ != Kind::Closed) throw object_open();
    std::string sql = statement_for(source, options);
    // The record set owns this connection: it closes when the record set lets it go.
    auto cn = Connection::create();
    cn->Open(connection_string);
    const bool client =
        location_ == adUseClient || cursor_type == adOpenStatic || cursor_type == adOpenKeyset;
    open_statement(sql, cn->session(), cn, client, cn->CommandTimeout());
}

void Recordset::Open(std::string_view source, const std::shared_ptr<Connection>& active_connection,
                     CursorTypeEnum cursor_type, LockTypeEnum /*lock_type*/, long options) {
    if (kind_ != Kind::Closed) throw object_open();
    std::shared_ptr<Connection> cn = active_connection ? active_connection : active_connection_;
    if (!cn) throw no_connection();
    std::string sql = statement_for(source, options);
    const bool client =
        location_ == adUseClient || cursor_type == adOpenStatic || cursor_type == adOpenKeyset;
    open_statement(sql, cn->session(), cn, client, cn->CommandTimeout());
}

void Recordset::Open() {
    if (kind_ != Kind::Closed) throw object_open();
    rows_.clear();
    kind_ = Kind::Built;
    position_ = 0;
    eof_ = bof_ = true;
    editing_ = false;
}

void Recordset::open_statement(std::string_view source, std::shared_ptr<driver::Session> session,
                               std::shared_ptr<Connection> connection, bool client_side,
                               long timeout_seconds) {
    if (connection)
        connection->log(source);
    else
        sql_log::write(source);
    driver::ExecOptions options;
    options.read_only = true;
    options.timeout_seconds = timeout_seconds;
    auto cursor = session->execute(source, options, nullptr);
    source_ = std::string(source);
    timeout_ = timeout_seconds;
    active_connection_ = std::move(connection);
    if (!cursor) {
        // A statement without rows leaves the record set closed, as the platform does.
        active_connection_.reset();
        return;
    }
    attach_cursor(std::move(cursor), std::move(session), client_side);
}

void Recordset::attach_cursor(std::unique_ptr<driver::Cursor> cursor,
                              std::shared_ptr<driver::Session> session, bool client_side) {
    fields_.fields_.clear();
    const auto& columns = cursor->columns();
    fields_.fields_.reserve(columns.size());
    for (std::size_t i = 0; i < columns.size(); ++i)
        fields_.fields_.push_back(std::unique_ptr<Field>(
            new Field(this, i, columns[i].name, field_type(columns[i].type), 0)));
    position_ = 0;
    editing_ = false;
    if (client_side) {
        rows_.clear();
        std::vector<Variant> row;
        while (cursor->next(row))
            rows_.push_back(std::move(row));
        kind_ = Kind::Static;
        eof_ = bof_ = rows_.empty();
        return;  // the cursor and the session go: every row is here
    }
    session_ = std::move(session);
    cursor_ = std::move(cursor);
    kind_ = Kind::Cursor;
    fetch();
    bof_ = eof_;
}

void Recordset::fetch() {
    if (cursor_ && cursor_->next(current_)) {
        eof_ = false;
        return;
    }
    // Let the statement go at once, so that it holds no read lock while the caller goes on.
    eof_ = true;
    cursor_.reset();
    current_.clear();
}

void Recordset::Close() {
    cursor_.reset();
    session_.reset();
    active_connection_.reset();
    rows_.clear();
    current_.clear();
    if (kind_ != Kind::Built) fields_.fields_.clear();  // a built record set keeps its layout
    kind_ = Kind::Closed;
    position_ = 0;
    eof_ = bof_ = true;
    editing_ = false;
}

int Recordset::State() const {
    return kind_ == Kind::Closed ? adStateClosed : adStateOpen;
}

void Recordset::SetActiveConnection(const std::shared_ptr<Connection>& connection) {
    if (kind_ == Kind::Cursor && connection != active_connection_) {
        // A forward cursor reads from its connection as it moves; it cannot be let go.
        throw illegal_operation();
    }
    active_connection_ = connection;
}

bool Recordset::Eof() const {
    if (kind_ == Kind::Closed) throw ComError::platform(err::kObjectClosed);
    return eof_;
}

bool Recordset::Bof() const {
    if (kind_ == Kind::Closed) throw ComError::platform(err::kObjectClosed);
    return bof_;
}

void Recordset::MoveNext() {
    if (kind_ == Kind::Closed) throw ComError::platform(err::kObjectClosed);
    if (eof_) throw ComError::platform(err::kNoCurrentRecord);
    if (editing_) Update();
    ++position_;
    bof_ = false;
    if (kind_ == Kind::Cursor) {
        fetch();
    } else {
        eof_ = static_cast<std::size_t>(position_) >= rows_.size();
    }
}

void Recordset::MoveFirst() {
    if (kind_ == Kind::Closed) throw ComError::platform(err::kObjectClosed);
    if (editing_) Update();
    if (kind_ == Kind::Cursor) {
        if (position_ == 0) return;  // still on the first row (or the set is empty)
        // A forward cursor cannot go back: the statement runs again.
        cursor_.reset();
        current_.clear();
        driver::ExecOptions options;
        options.read_only = true;
        options.timeout_seconds = timeout_;
        cursor_ = session_->execute(source_, options, nullptr);
        position_ = 0;
        fetch();
        bof_ = eof_;
        return;
    }
    position_ = 0;
    eof_ = bof_ = rows_.empty();
}

long Recordset::RecordCount() const {
    if (kind_ == Kind::Closed) throw ComError::platform(err::kObjectClosed);
    if (kind_ == Kind::Cursor) return -1;
    return static_cast<long>(rows_.size());
}

void Recordset::AddNew() {
    if (kind_ == Kind::Closed) throw ComError::platform(err::kObjectClosed);
    if (kind_ != Kind::Built) throw not_updatable();
    if (editing_) Update();
    rows_.emplace_back(fields_.Count());
    position_ = static_cast<long>(rows_.size()) - 1;
    eof_ = bof_ = false;
    editing_ = true;
}

void Recordset::Update() {
    if (kind_ == Kind::Closed) throw ComError::platform(err::kObjectClosed);
    if (kind_ != Kind::Built) throw not_updatable();
    editing_ = false;  // values are written into the row as they are set
}

void Recordset::refuse_value_at(std::size_t) const {
    if (kind_ == Kind::Closed || eof_) throw ComError::platform(err::kNoCurrentRecord);
    throw ComError::platform(err::kItemNotFound);
}

void Recordset::set_value_at(std::size_t index, Variant value) {
    if (kind_ == Kind::Cursor || kind_ == Kind::Static) throw not_updatable();
    if (kind_ == Kind::Closed || eof_) throw ComError::platform(err::kNoCurrentRecord);
    auto& row = rows_[static_cast<std::size_t>(position_)];
    if (index >= row.size()) throw ComError::platform(err::kItemNotFound);
    row[index] = std::move(value);
}

// ---- Parameters / Command -----------------------------------------------------------------

void Parameters::Append(std::shared_ptr<Parameter> p) {
    if (!p) throw ComError::platform(err::kObjectRequired);
    items_.push_back(std::move(p));
}

Parameter& Parameters::Item(std::string_view name) {
    for (auto& p : items_)
        if (iequals(p->Name(), name)) return *p;
    throw ComError::platform(err::kItemNotFound);
}

Parameter& Parameters::Item(std::size_t index) {
    if (index >= items_.size()) throw ComError::platform(err::kItemNotFound);
    return *items_[index];
}

std::shared_ptr<Command> Command::create() {
    return std::shared_ptr<Command>(new Command());
}

std::shared_ptr<Parameter> Command::CreateParameter(std::string_view name, DataTypeEnum type,
                                                    ParameterDirectionEnum direction, long size,
                                                    Variant value) {
    auto p = std::make_shared<Parameter>();
    p->name_ = std::string(name);
    p->type_ = type;
    p->direction_ = direction;
    p->size_ = size;
    p->value_ = std::move(value);
    return p;
}

long Command::CommandTimeout() const {
    if (timeout_ >= 0) return timeout_;
    return ActiveConnection ? ActiveConnection->CommandTimeout() : kDefaultCommandTimeout;
}

void Command::SetCommandTimeout(long seconds) {
    if (seconds < 0) throw invalid_argument();
    timeout_ = seconds;
}

std::shared_ptr<Recordset> Command::Execute(long* records_affected, long /*options*/) {
    if (!ActiveConnection) throw no_connection();
    if (CommandType != adCmdStoredProc) {
        const long kind = CommandType == adCmdUnspecified ? adCmdText : CommandType;
        return ActiveConnection->execute(statement_for(CommandText, kind), records_affected,
                                         CommandTimeout());
    }
    auto s = ActiveConnection->session();
    ActiveConnection->log(CommandText);
    std::vector<driver::ProcArg> args;
    args.reserve(parameters_.items_.size());
    for (const auto& p : parameters_.items_) {
        driver::ProcArg a;
        a.name = p->name_;
        a.type = var_type(p->type_);
        a.direction = p->direction_;
        a.value = p->value_;
        args.push_back(std::move(a));
    }
    driver::ExecOptions exec;
    exec.timeout_seconds = CommandTimeout();
    auto cursor = s->call(CommandText, args, exec);
    for (std::size_t i = 0; i < args.size() && i < parameters_.items_.size(); ++i) {
        Parameter& p = *parameters_.items_[i];
        if (p.direction_ != adParamInput) p.value_ = coerce(args[i].value, p.type_);
    }
    if (records_affected) *records_affected = -1;
    auto rs = Recordset::create();
    if (cursor) {
        rs->active_connection_ = ActiveConnection;
        rs->source_ = CommandText;
        rs->timeout_ = exec.timeout_seconds;
        rs->attach_cursor(std::move(cursor), s, false);
    }
    return rs;
}

std::shared_ptr<Recordset> make_recordset(const std::vector<std::string>& fields,
                                          const std::vector<std::vector<Variant>>& rows) {
    auto rs = Recordset::create();
    for (const auto& name : fields)
        rs->GetFields().Append(name, adVariant);
    rs->Open();
    for (const auto& row : rows) {
        rs->AddNew();
        for (std::size_t i = 0; i < row.size(); ++i)
            rs->Fields(i).SetValue(row[i]);
        rs->Update();
    }
    if (!rows.empty()) rs->MoveFirst();
    return rs;
}

}  // namespace billdata::ado
