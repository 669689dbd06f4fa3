// Rights, groups, archives and channels of a user: one SELECT each, packed into one text.

#include "halqvantor/clsVantor.h"
#include "users/user_directory.h"

namespace halqvantor {
namespace {

using users::ColumnText;
using users::Database;
using users::Logged;
using users::OutText;
using users::SqlNumber;

// "(UserID=n) OR (UserID IN (SELECT GroupID FROM UserGroups WHERE UserID=n))": the user and his direct groups.
std::string UserOrGroups(const std::string& id) {
  return "(UserID=" + id + ") OR (UserID IN (SELECT GroupID FROM UserGroups WHERE UserID=" + id + "))";
}

// The shared procedure of the list operations: one item per row, open + value + close, joined by ",".
Variant ListRows(LinkSession& d, std::string_view function, const Variant& user_id, Variant* out,
                 std::string (*statement)(const std::string& id), std::string_view column, std::string_view open,
                 std::string_view close) {
  return Logged(d, function, [&] {
    OutText text(out);
    int32_t count = 0;
    std::unique_ptr<platform::Recordset> rs = Database(d).Execute(statement(SqlNumber(user_id, "strUserID")));
    while (rs && !rs->Eof()) {
      ++count;
      if (!text.text().empty()) text.text() += ',';
      text.text() += open;
      text.text() += ColumnText(rs->Field(column));
      text.text() += close;
      rs->MoveNext();
    }
    if (rs) rs->Close();
    return Variant(count);
  });
}

}  // namespace

Variant clsVantor::GetUserRights(const Variant& strUserID, Variant* strRights) {
  return ListRows(
      SessionOf(*this), "GetUserRights", strUserID, strRights,
      [](const std::string& id) { return "SELECT DISTINCT RightID FROM UserRights WHERE " + UserOrGroups(id); },
      "RightID", "^", "^");
}

Variant clsVantor::GetUserArchives(const Variant& strUserID, Variant* strArchives) {
  return ListRows(
      SessionOf(*this), "GetUserArchives", strUserID, strArchives,
      [](const std::string& id) { return "SELECT DISTINCT Archive FROM UserArchives WHERE " + UserOrGroups(id); },
      "Archive", "^", "^");
}

Variant clsVantor::GetUserChannels(const Variant& strUserID, Variant* strChannels) {
  return ListRows(
      SessionOf(*this), "GetUserChannels", strUserID, strChannels,
      [](const std::string& id) { return "SELECT DISTINCT Channel FROM UserChannels WHERE " + UserOrGroups(id); },
      "Channel", "^", "^");
}

Variant clsVantor::GetUserGroups(const Variant& strUserID, Variant* strGroups) {
  return ListRows(
      SessionOf(*this), "GetUserGroups", strUserID, strGroups,
      [](const std::string& id) {
        return "SELECT DISTINCT UserName FROM Users, UserGroups WHERE Users.UserID=UserGroups.GroupID AND "
               "UserGroups.UserID=" +
               id;
      },
      "UserName", "[", "]");
}

Variant clsVantor::GetUserEditRights(const Variant& strUserID, Variant* strEditRights) {
  LinkSession& d = SessionOf(*this);
  return Logged(d, "GetUserEditRights", [&] {
    OutText text(strEditRights);
    int32_t count = 0;
    const std::string id = SqlNumber(strUserID, "strUserID");
    std::unique_ptr<platform::Recordset> rs =
        Database(d).Execute("SELECT DISTINCT Archive, SUM(New), SUM(Edit), SUM(Del) FROM UserEditRights WHERE " +
                            UserOrGroups(id) + " GROUP BY Archive");
    // A sum above 0 grants the right; a NULL sum grants nothing.
    const auto granted = [](const Variant& sum) { return !sum.IsNull() && sum.ToDouble() > 0; };
    while (rs && !rs->Eof()) {
      ++count;
      std::string& t = text.text();
      t += ColumnText(rs->Field(0));
      if (granted(rs->Field(1))) t += ",N";
      if (granted(rs->Field(2))) t += ",E";
      if (granted(rs->Field(3))) t += ",D";
      t += d.LineBreak;
      rs->MoveNext();
    }
    return Variant(count);
  });
}

}  // namespace halqvantor
