// Sub-commands of the user directory: logon, rights, adduser, and initdb, which creates a SQLite user
// database with the portable schema and the directory's own settings (with --demo-users also the demo's
// users, groups and rights).

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include "demo_setup.h"
#include "output.h"
#include "platform/database.h"
#include "schema_sql.h"
#include "session.h"

namespace vantor {
namespace {

namespace fs = std::filesystem;
using halqvantor::Variant;

Variant OrMissing(const std::string& text) { return text.empty() ? Variant::missing() : Variant(text); }

struct LogonArgs {
  std::string user, password;
  bool empty_password = false;
};

// The password of a portal user: the one given, else --password-stdin or the prompt; a usage error naming
// the ways to give it when there is none.
std::string PortalPassword(Session& session, const std::string& command, const std::string& user,
                           const std::string& given, const std::string& other_way) {
  if (!given.empty()) return given;
  std::optional<std::string> read = session.ReadPassword("Password of " + user + ": ");
  if (read && !read->empty()) return *read;
  throw UsageError(command + " needs the password of " + user + ": give it after the name, pipe it in with " +
                   "--password-stdin, or type it at the prompt on a terminal" + other_way);
}

int RunLogon(Session& session, const LogonArgs& args) {
  // Only the name would be checked without a password: a user with none says so explicitly.
  const std::string password = args.empty_password ? std::string()
                                                   : PortalPassword(session, "logon", args.user, args.password,
                                                                    " (--empty-password for a user without one)");
  auto& vantor = session.Open(true);
  session.Calling("CheckLogon");
  Variant id = vantor.CheckLogon(args.user, Variant(password));
  session.CheckDirectory(id);
  if (id.IsNumeric() && id.ToLong() == 0) throw CommandFailed("log-on refused for " + args.user);
  if (session.json()) {
    session.PrintJson({{"user", args.user}, {"id", TypedValue(Text(id), ColumnKind::kNumber)}});
  } else {
    session.out() << args.user << ": user id " << Text(id) << '\n';
  }
  return 0;
}

int RunRights(Session& session, const std::string& user) {
  auto& vantor = session.Open(true);
  Variant id(user);
  if (user.empty() || !std::all_of(user.begin(), user.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    session.Calling("CheckLogon");
    id = vantor.CheckLogon(user);
    session.CheckDirectory(id);
    if (id.IsNumeric() && id.ToLong() == 0) throw CommandFailed("no user " + user + " in the user database");
  }
  Variant rights, groups, channels, archives, edit, search, hidden, no_matchcode;
  session.Calling("GetUserRights");
  session.CheckDirectory(vantor.GetUserRights(id, &rights));
  session.Calling("GetUserGroups");
  session.CheckDirectory(vantor.GetUserGroups(id, &groups));
  session.Calling("GetUserChannels");
  session.CheckDirectory(vantor.GetUserChannels(id, &channels));
  session.Calling("GetUserArchives");
  session.CheckDirectory(vantor.GetUserArchives(id, &archives));
  session.Calling("GetUserEditRights");
  session.CheckDirectory(vantor.GetUserEditRights(id, &edit));
  session.Calling("GetUserSearchRights");
  session.CheckDirectory(vantor.GetUserSearchRights(id, &search, &hidden, &no_matchcode));

  struct Section {
    const char* name;
    std::vector<std::string> items;
  };
  const std::vector<Section> sections = {
      {"rights", EnclosedNames(Text(rights), '^', '^')},
      {"groups", EnclosedNames(Text(groups), '[', ']')},
      {"channels", EnclosedNames(Text(channels), '^', '^')},
      {"archives", EnclosedNames(Text(archives), '^', '^')},
      {"edit rights", Lines(Text(edit))},
      {"search rights", Lines(Text(search))},
      {"hidden fields", Lines(Text(hidden))},
      {"no-match-code fields", Lines(Text(no_matchcode))},
  };
  if (session.json()) {
    Json result = {{"user", user}, {"id", TypedValue(Text(id), ColumnKind::kNumber)}};
    for (const auto& section : sections) result[SnakeCase(section.name)] = ToJson(section.items);
    session.PrintJson(result);
    return 0;
  }
  if (session.csv()) {
    Listing listing({"section", "item"});
    for (const auto& section : sections) {
      for (const auto& item : section.items) listing.Add({SnakeCase(section.name), item});
    }
    session.Print(listing);
    return 0;
  }
  session.out() << "user id: " << Text(id) << '\n';
  for (const auto& section : sections) {
    session.out() << section.name << ':';
    if (section.items.empty()) session.out() << " -";
    for (const auto& item : section.items) session.out() << "\n  " << item;
    session.out() << '\n';
  }
  return 0;
}

// The settings a directory records for itself, one row, read by every command that opens it (and by any
// host through ApplyDirectorySettings).
constexpr const char* kSettingsTable = "CREATE TABLE DirectorySettings (StrongPasswords INTEGER NOT NULL)";

struct InitDbArgs {
  std::string file;
  bool demo_users = false;
  bool strong_passwords = false;
};

int RunInitDb(Session& session, const InitDbArgs& args) {
  const std::string& file = args.file;
  std::error_code error;
  if (fs::exists(file, error)) throw CommandFailed(file + " exists: initdb creates a new database only");
  auto statements = halqvantor::platform::SplitSqlScript(kPortableSchema);
  try {
    if (args.demo_users) demo::CreateUserDatabase(file);
    auto connection = halqvantor::platform::NewSqliteConnection(true);
    connection->Open("Provider=SQLite;Data Source={" + file + "}");
    if (!args.demo_users) {
      for (const auto& statement : statements) connection->Execute(statement);
    }
    connection->Execute(kSettingsTable);
    connection->Execute("INSERT INTO DirectorySettings (StrongPasswords) VALUES (?)",
                        {Variant(int32_t{args.strong_passwords ? 1 : 0})});
    connection->Close();
  } catch (const halqvantor::RuntimeError& e) {
    fs::remove(file, error);  // no half-made database left behind
    throw CommandFailed(file + ": " + e.description());
  } catch (const std::exception& e) {
    fs::remove(file, error);
    throw CommandFailed(e.what());
  }
  size_t tables = std::count_if(statements.begin(), statements.end(),
                                [](const std::string& s) { return s.find("CREATE TABLE") != std::string::npos; });
  if (session.json()) {
    session.PrintJson({{"file", file},
                       {"tables", tables},
                       {"demo_users", args.demo_users},
                       {"strong_passwords", args.strong_passwords}});
  } else {
    session.out() << "created " << file << " (" << tables << " tables" << (args.demo_users ? ", the demo's users" : "")
                  << (args.strong_passwords ? "; passwords stored as Argon2id hashes" : "") << "); use it with --db "
                  << file << '\n';
  }
  return 0;
}

struct AddUserArgs {
  std::string user, password, easy_user, easy_password;
};

// True when `password` comes back unchanged from the reversible encoding (it loses umlauts and other
// characters beyond plain ASCII, and characters past about the 47th).
bool SurvivesEncoding(halqvantor::clsVantor& vantor, const std::string& password) {
  try {
    return vantor.Decode(vantor.Encode(password)) == Variant(password);
  } catch (const halqvantor::RuntimeError&) {
    return false;
  }
}

int RunAddUser(Session& session, AddUserArgs args) {
  args.password = PortalPassword(session, "adduser", args.user, args.password, "");
  auto& vantor = session.Open(true);
  // The directory would take a second user of the same name, and log-on and rights then find the first.
  session.Calling("CheckLogon");
  const Variant existing = vantor.CheckLogon(args.user);
  session.CheckDirectory(existing);
  if (existing.IsNumeric() && existing.ToLong() != 0) {
    throw CommandFailed("adduser: the user database has a user " + args.user + " already (user id " + Text(existing) +
                        "); choose another name");
  }
  // An encoded password that does not come back cannot be checked at log-on; say so, and how to avoid it.
  if (!halqvantor::Options(vantor).strong_passwords && !SurvivesEncoding(vantor, args.password)) {
    session.err() << "warning: the password of " << args.user
                  << " does not survive the encoded format (umlauts and other non-ASCII characters, or more than 47 "
                     "characters), so it will not log on; choose another, or keep passwords as hashes in a database "
                     "made with `vantor initdb --strong-passwords`\n";
  }
  if (!args.easy_password.empty() && !SurvivesEncoding(vantor, args.easy_password)) {
    session.err() << "warning: the archive password of " << args.user
                  << " does not survive the encoded format (umlauts and other non-ASCII characters, or more than 47 "
                     "characters), so the archive will refuse it\n";
  }
  session.Calling("WriteUserToDB");
  Variant id = vantor.WriteUserToDB(args.user, args.password, OrMissing(args.easy_user), OrMissing(args.easy_password));
  session.CheckDirectory(id);
  if (session.json()) {
    session.PrintJson({{"user", args.user}, {"id", TypedValue(Text(id), ColumnKind::kNumber)}});
  } else {
    session.out() << "added " << args.user << " with user id " << Text(id) << '\n';
  }
  return 0;
}

}  // namespace

void AddUserCommands(CLI::App& app, Action& action) {
  auto logon = std::make_shared<LogonArgs>();
  auto* logon_command = app.add_subcommand("logon", "check a portal user's log-on against the user database (--db)");
  logon_command->add_option("USER", logon->user, "user name")->required();
  auto* logon_password = logon_command->add_option("PASSWORD", logon->password,
                                                   "password (left out: --password-stdin, or a prompt on a terminal)");
  logon_command->add_flag("--empty-password", logon->empty_password, "log on a user whose password is empty")
      ->excludes(logon_password);
  OnParsed(logon_command, action, logon, RunLogon);

  auto user = std::make_shared<std::string>();
  auto* rights = app.add_subcommand(
      "rights", "show what a portal user may do: rights, groups, channels, archives, edit and search rights (--db)");
  rights->add_option("USER", *user, "user name or user id")->required();
  OnParsed(rights, action, user, RunRights);

  auto init = std::make_shared<InitDbArgs>();
  auto* initdb = app.add_subcommand("initdb", "create a new SQLite user database with the portable schema");
  initdb->add_option("FILE", init->file, "the database file to create (an existing file is left alone)")->required();
  initdb->add_flag("--demo-users", init->demo_users,
                   "also add the demo's users (anna / Portal2002, bert / bert), groups and rights");
  initdb->add_flag("--strong-passwords", init->strong_passwords,
                   "store log-on passwords as Argon2id hashes (exact, any length and characters) instead of the "
                   "reversible encoding; old ones are replaced at their next log-on");
  OnParsed(initdb, action, init, RunInitDb);

  auto add = std::make_shared<AddUserArgs>();
  auto* adduser = app.add_subcommand("adduser", "add a portal user to the user database (--db)");
  adduser->add_option("USER", add->user, "user name")->required();
  adduser->add_option("PASSWORD", add->password,
                      "password, stored encoded or hashed in a strong-password database (left out: "
                      "--password-stdin, or a prompt on a terminal)");
  auto* easy_user = adduser->add_option("--easy-user", add->easy_user, "the user's archive account");
  auto* easy_password = adduser->add_option("--easy-password", add->easy_password, "its password");
  easy_user->needs(easy_password);
  easy_password->needs(easy_user);
  OnParsed(adduser, action, add, RunAddUser);
}

}  // namespace vantor
