// User records and log-on: numbering, new users, log-on check, password change, archive account, and the
// settings a user database records for itself.

#include <exception>
#include <limits>
#include <optional>

#include "halqvantor/clsVantor.h"
#include "link/text_encoding.h"
#include "platform/vb_runtime.h"
#include "users/strong_password.h"
#include "users/user_directory.h"

namespace halqvantor {
namespace {

using users::Database;
using users::Logged;
using users::SqlIdentifier;
using users::SqlNumber;
using users::SqlText;

// value + 1 with the result type of the automation variant's addition: Integer and Long widen on overflow,
// a text is read as a number and gives a Double.
Variant PlusOne(const Variant& value) {
  switch (value.type()) {
    case VarType::Integer:
    case VarType::Byte:
    case VarType::Boolean: {
      const int32_t sum = static_cast<int32_t>(value.ToDouble()) + 1;
      if (sum <= std::numeric_limits<int16_t>::max()) return Variant(static_cast<int16_t>(sum));
      return Variant(sum);
    }
    case VarType::Long: {
      const int64_t sum = static_cast<int64_t>(value.ToLong()) + 1;
      if (sum <= std::numeric_limits<int32_t>::max()) return Variant(static_cast<int32_t>(sum));
      return Variant(static_cast<double>(sum));
    }
    case VarType::Date:
      return Variant::date(value.ToDouble() + 1);
    default:
      return Variant(value.ToDouble() + 1);
  }
}

// A password as the Passwd column keeps it: hashed when the object is set to strong passwords, encoded
// otherwise.
std::string StoredPassword(const LinkSession& d, const std::string& password) {
  return d.options.strong_passwords ? users::HashStrongPassword(password) : EncodeText(password);
}

// CheckLogon, logged under that name. With `upgrade` and the object set to strong passwords, an encoded
// password that the log-on gave exactly (case included) is replaced by its strong form; one that matched only
// without regard to case stays as it is, so that no log-on with another spelling locks the user out.
Variant CheckLogonOf(LinkSession& d, const Variant& strUser, const Variant& strPasswd, bool upgrade) {
  return Logged(d, "CheckLogon", [&] {
    Variant result(int16_t{0});
    std::optional<std::string> upgraded;  // the password to store in the strong form, when one is due
    std::unique_ptr<platform::Recordset> rs =
        Database(d).Execute("SELECT UserID, Passwd FROM Users WHERE UserName=?", {SqlText(strUser)});
    if (rs && !rs->Eof()) {
      if (strPasswd.IsMissing()) {
        // No password asked: the name alone logs on.
        result = rs->Field("UserID");
      } else {
        const Variant stored = rs->Field("Passwd");
        if (!stored.IsNull()) {
          const std::string kept = stored.ToString();
          const std::string given = strPasswd.ToString();
          if (users::IsStrongPassword(kept)) {
            if (users::VerifyStrongPassword(kept, given)) result = rs->Field("UserID");
          } else {
            const std::string decoded = DecodeText(kept);
            if (vb::UCase(decoded) == vb::UCase(given)) {
              result = rs->Field("UserID");
              if (upgrade && d.options.strong_passwords && decoded == given) upgraded = given;
            }
          }
        }
      }
    }
    if (rs) rs->Close();
    if (upgraded) {
      // The log-on stands even when the new form cannot be written (a read-only database, say); the failure
      // is logged and the old form is tried again next time.
      try {
        Database(d).Execute("UPDATE Users SET Passwd=? WHERE UserID=?",
                            {Variant(users::HashStrongPassword(*upgraded)), result});
      } catch (const std::exception& e) {
        d.WriteLog(GeneralFailureLine("CheckLogon", e));
      }
    }
    return result;
  });
}

}  // namespace

Variant clsVantor::GetNextDBObjectID(const Variant& strField, const Variant& strTable) {
  LinkSession& d = SessionOf(*this);
  return Logged(d, "GetNextDBObjectID", [&] {
    const std::string sql =
        "SELECT MAX(" + SqlIdentifier(strField, "strField") + ") FROM " + SqlIdentifier(strTable, "strTable");
    std::unique_ptr<platform::Recordset> rs = Database(d).Execute(sql);
    Variant result(int16_t{1});
    if (rs && !rs->Eof()) {
      const Variant highest = rs->Field(0);
      if (!highest.IsNull()) result = PlusOne(highest);
    }
    if (rs) rs->Close();
    return result;
  });
}

Variant clsVantor::WriteUserToDB(const Variant& strUser, const Variant& strPasswd, const Variant& strEASYUser,
                                 const Variant& strEASYPasswd) {
  LinkSession& d = SessionOf(*this);
  return Logged(d, "WriteUserToDB", [&] {
    // The values are read before the numbering, so that one that is no text sends nothing to the database.
    const bool with_account = !strEASYUser.IsMissing() && !strEASYPasswd.IsMissing();
    const Variant user = SqlText(strUser);
    const Variant account = with_account ? SqlText(strEASYUser) : Variant();
    // A failure to number is logged by GetNextDBObjectID itself and arrives here as -1.
    const int32_t id = GetNextDBObjectID(Variant("UserID"), Variant("Users")).ToLong();
    if (id < 1) return Variant(int16_t{-1});
    const Variant password(StoredPassword(d, strPasswd.ToString()));
    if (!with_account) {
      Database(d).Execute("INSERT INTO Users(UserID,UserName,Passwd) VALUES (" + std::to_string(id) + ", ?, ?)",
                          {user, password});
    } else {
      // The archive password is sent to the gateway, so it stays in the reversible encoding.
      Database(d).Execute("INSERT INTO Users(UserID,UserName,Passwd,EASYUser,EASYPasswd) VALUES (" +
                              std::to_string(id) + ", ?, ?, ?, ?)",
                          {user, password, account, Variant(EncodeText(strEASYPasswd.ToString()))});
    }
    return Variant(id);
  });
}

Variant clsVantor::CheckLogon(const Variant& strUser, const Variant& strPasswd) {
  return CheckLogonOf(SessionOf(*this), strUser, strPasswd, /*upgrade=*/true);
}

Variant clsVantor::ChangePasswd(const Variant& strUser, const Variant& strPasswdOld, const Variant& strPasswdNew) {
  LinkSession& d = SessionOf(*this);
  return Logged(d, "ChangePasswd", [&] {
    // A failed log-on check has logged itself and comes back as -1, which updates nothing. The old password
    // is not upgraded on the way, as the new one replaces it at once.
    const int16_t logon = CheckLogonOf(d, strUser, strPasswdOld, /*upgrade=*/false).ToInteger();
    if (logon >= 1) {
      Database(d).Execute("UPDATE Users SET Passwd=? WHERE UserName=?",
                          {Variant(StoredPassword(d, strPasswdNew.ToString())), SqlText(strUser)});
    }
    return Variant(logon);
  });
}

Variant clsVantor::GetUserEASYUser(const Variant& strUserID, Variant* strEASYUser, Variant* strEASYPasswd) {
  LinkSession& d = SessionOf(*this);
  return Logged(d, "GetUserEASYUser", [&] {
    std::unique_ptr<platform::Recordset> rs =
        Database(d).Execute("SELECT EASYUser, EASYPasswd FROM Users WHERE UserID=" + SqlNumber(strUserID, "strUserID"));
    if (!rs || rs->Eof()) return Variant(int16_t{0});
    const Variant user = rs->Field("EASYUser");
    const Variant password = rs->Field("EASYPasswd");
    if (!user.IsNull() && !password.IsNull()) {
      // The name lands before the password is decoded, so a password that cannot be decoded leaves it set.
      if (strEASYUser != nullptr) *strEASYUser = user;
      const std::string decoded = DecodeText(password.ToString());
      if (strEASYPasswd != nullptr) *strEASYPasswd = Variant(decoded);
    } else {
      if (strEASYUser != nullptr) *strEASYUser = Variant("");
      if (strEASYPasswd != nullptr) *strEASYPasswd = Variant("");
    }
    rs->Close();
    return Variant(int16_t{1});
  });
}

bool ApplyDirectorySettings(clsVantor& object) {
  LinkSession& d = SessionOf(object);
  std::unique_ptr<platform::Connection>& connection = users::StateOf(object).DBConnection;
  if (!connection || connection->State() != platform::kAdStateOpen) return false;
  std::unique_ptr<platform::Recordset> rs;
  try {
    rs = connection->Execute("SELECT StrongPasswords FROM DirectorySettings");
  } catch (const platform::DatabaseError&) {
    return false;  // a directory without the table: made by hand, or before it existed
  }
  if (!rs || rs->Eof()) return false;
  const Variant strong = rs->Field(0);
  d.options.strong_passwords = !strong.IsNull() && strong.ToDouble() != 0;
  return true;
}

}  // namespace halqvantor
