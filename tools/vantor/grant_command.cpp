// `vantor grant USER`: rights, group memberships, channels and archives given to (or, with --revoke, taken
// from) a user of the user directory. The component reads these tables but never writes them, so the command
// writes them itself, with bound values, through a connection of its own to the same database.

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "output.h"
#include "platform/database.h"
#include "platform/env.h"
#include "session.h"

namespace vantor {
namespace {

using halqvantor::Variant;

struct GrantArgs {
  std::string user;
  std::vector<std::string> rights, groups, channels, archives;
  bool revoke = false;
};

// One kind of grant: its table and the column that holds the granted name or number.
struct GrantKind {
  const char* name;
  const char* table;
  const char* column;
  const std::vector<std::string> GrantArgs::*items;
};

constexpr GrantKind kKinds[] = {
    {"right", "UserRights", "RightID", &GrantArgs::rights},
    {"group", "UserGroups", "GroupID", &GrantArgs::groups},
    {"channel", "UserChannels", "Channel", &GrantArgs::channels},
    {"archive", "UserArchives", "Archive", &GrantArgs::archives},
};

bool IsNumber(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// The UserID of a user or group named by name (through the component's log-on check) or by number (which
// must be in Users).
Variant UserId(Session& session, halqvantor::platform::Connection& connection, const std::string& user,
               const char* what) {
  if (IsNumber(user)) {
    const std::optional<int64_t> number = user.size() <= 9 ? WholeNumber(user) : std::nullopt;
    if (!number) throw UsageError("no " + std::string(what) + " number " + user);
    const Variant id(static_cast<int32_t>(*number));
    if (connection.Execute("SELECT COUNT(*) FROM Users WHERE UserID = ?", {id})->Field(0).ToLong() == 0) {
      throw CommandFailed("no " + std::string(what) + " with id " + user + " in the user database");
    }
    return id;
  }
  session.Calling("CheckLogon");
  Variant id = session.object().CheckLogon(user);
  session.CheckDirectory(id);
  if (id.IsNumeric() && id.ToLong() == 0) {
    throw CommandFailed("no " + std::string(what) + " " + user + " in the user database" +
                        (std::string(what) == "group" ? " (a group is a user row: add it with vantor adduser)" : ""));
  }
  return id;
}

// Writes the grants of `args` for the user through `connection`, one row of `changes` per item; the user's
// id is the result. Group names become their UserIDs before anything is written, so that an unknown one
// changes nothing.
Variant Grant(Session& session, halqvantor::platform::Connection& connection, const GrantArgs& args, Listing& changes) {
  const Variant id = UserId(session, connection, args.user, "user");
  std::vector<std::vector<Variant>> values;
  for (const GrantKind& kind : kKinds) {
    std::vector<Variant> row;
    for (const std::string& item : args.*kind.items) {
      if (kind.items != &GrantArgs::groups) {
        row.emplace_back(item);
        continue;
      }
      const Variant group = UserId(session, connection, item, "group");
      if (group.ToString() == id.ToString()) throw UsageError("grant: " + item + " cannot be a group of itself");
      row.push_back(group);
    }
    values.push_back(std::move(row));
  }
  session.Calling("grant");
  for (size_t k = 0; k < std::size(kKinds); ++k) {
    const GrantKind& kind = kKinds[k];
    const std::string where = std::string(" FROM ") + kind.table + " WHERE UserID = ? AND " + kind.column + " = ?";
    for (size_t i = 0; i < values[k].size(); ++i) {
      const std::vector<Variant> keys = {id, values[k][i]};
      const bool present = connection.Execute("SELECT COUNT(*)" + where, keys)->Field(0).ToLong() > 0;
      std::string result;
      if (args.revoke) {
        if (present) connection.Execute("DELETE" + where, keys);
        result = present ? "revoked" : "not granted";
      } else {
        if (!present) {
          connection.Execute(std::string("INSERT INTO ") + kind.table + " (UserID, " + kind.column + ") VALUES (?, ?)",
                             keys);
        }
        result = present ? "already granted" : "granted";
      }
      changes.Add({kind.name, (args.*kind.items)[i], result});
    }
  }
  return id;
}

int RunGrant(Session& session, const GrantArgs& args) {
  size_t asked = 0;
  for (const GrantKind& kind : kKinds) asked += (args.*kind.items).size();
  if (asked == 0) throw UsageError("grant: name what to give: --right, --group, --channel or --archive");
  session.Open(true);
  Listing changes({"kind", "name", "result"});
  Variant id;
  try {
    auto connection = halqvantor::platform::Env::Default()->NewConnection();
    connection->Open(session.options().db);
    id = Grant(session, *connection, args, changes);
    connection->Close();
  } catch (const halqvantor::RuntimeError& e) {
    throw CommandFailed("user database " + session.options().db + ": " + e.description());
  }
  if (session.json()) {
    session.PrintJson(
        {{"user", args.user}, {"id", TypedValue(Text(id), ColumnKind::kNumber)}, {"changes", changes.ToJson()}});
  } else {
    session.Print(changes, session.csv() ? "" : "user " + args.user + " (id " + Text(id) + ")");
  }
  return 0;
}

}  // namespace

void AddGrantCommand(CLI::App& app, Action& action) {
  auto grant = std::make_shared<GrantArgs>();
  auto* command = app.add_subcommand(
      "grant", "give a portal user rights, groups, channels and archives in the user database (--db)");
  command->add_option("USER", grant->user, "user name or user id")->required();
  // One value per option: "--right A B" would otherwise take B as a second right, not as a mistake.
  command->add_option("--right", grant->rights, "a right, e.g. SUCHE, NOTIZEN, UPLOAD (repeatable)")
      ->allow_extra_args(false);
  command->add_option("--group", grant->groups, "membership of a group, by name or id (repeatable)")
      ->allow_extra_args(false);
  command->add_option("--channel", grant->channels, "a channel the user sees in the portal (repeatable)")
      ->allow_extra_args(false);
  command->add_option("--archive", grant->archives, "an archive the user sees in the portal (repeatable)")
      ->allow_extra_args(false);
  command->add_flag("--revoke", grant->revoke, "take the named grants away instead");
  OnParsed(command, action, grant, RunGrant);
}

}  // namespace vantor
