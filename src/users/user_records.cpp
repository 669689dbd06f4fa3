// User records and log-on: numbering, new users, log-on check, password change, archive account.

#include <limits>

#include "halqvantor/clsVantor.h"
#include "platform/vb_runtime.h"
#include "users/text_encoding.h"
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

}  // namespace

Variant clsVantor::GetNextDBObjectID(const Variant& strField, const Variant& strTable) {
  Impl& d = *impl_;
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
  Impl& d = *impl_;
  return Logged(d, "WriteUserToDB", [&] {
    // The values are checked before the numbering, so that a refused one sends nothing to the database.
    const bool with_account = !strEASYUser.IsMissing() && !strEASYPasswd.IsMissing();
    const std::string user = SqlText(strUser, "strUser");
    const std::string account = with_account ? SqlText(strEASYUser, "strEASYUser") : "";
    // A failure to number is logged by GetNextDBObjectID itself and arrives here as -1.
    const int32_t id = GetNextDBObjectID(Variant("UserID"), Variant("Users")).ToLong();
    if (id < 1) return Variant(int16_t{-1});
    std::string sql;
    if (!with_account) {
      sql = "INSERT INTO Users(UserID,UserName,Passwd) VALUES (" + std::to_string(id) + ", '" + user + "', '" +
            EncodeText(strPasswd.ToString()) + "')";
    } else {
      sql = "INSERT INTO Users(UserID,UserName,Passwd,EASYUser,EASYPasswd) VALUES (" + std::to_string(id) + ", '" +
            user + "', '" + EncodeText(strPasswd.ToString()) + "', '" + account + "', '" +
            EncodeText(strEASYPasswd.ToString()) + "')";
    }
    Database(d).Execute(sql);
    return Variant(id);
  });
}

Variant clsVantor::CheckLogon(const Variant& strUser, const Variant& strPasswd) {
  Impl& d = *impl_;
  return Logged(d, "CheckLogon", [&] {
    Variant result(int16_t{0});
    std::unique_ptr<platform::Recordset> rs =
        Database(d).Execute("SELECT UserID, Passwd FROM Users WHERE UserName='" + SqlText(strUser, "strUser") + "'");
    if (rs && !rs->Eof()) {
      if (strPasswd.IsMissing()) {
        // No password asked: the name alone logs on.
        result = rs->Field("UserID");
      } else {
        const Variant stored = rs->Field("Passwd");
        if (!stored.IsNull() && vb::UCase(DecodeText(stored.ToString())) == vb::UCase(strPasswd.ToString())) {
          result = rs->Field("UserID");
        }
      }
    }
    if (rs) rs->Close();
    return result;
  });
}

Variant clsVantor::ChangePasswd(const Variant& strUser, const Variant& strPasswdOld, const Variant& strPasswdNew) {
  Impl& d = *impl_;
  return Logged(d, "ChangePasswd", [&] {
    // A failed CheckLogon has logged itself and comes back as -1, which updates nothing.
    const int16_t logon = CheckLogon(strUser, strPasswdOld).ToInteger();
    if (logon >= 1) {
      Database(d).Execute("UPDATE Users SET Passwd='" + EncodeText(strPasswdNew.ToString()) + "' WHERE UserName='" +
                          SqlText(strUser, "strUser") + "'");
    }
    return Variant(logon);
  });
}

Variant clsVantor::GetUserEASYUser(const Variant& strUserID, Variant* strEASYUser, Variant* strEASYPasswd) {
  Impl& d = *impl_;
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

}  // namespace halqvantor
