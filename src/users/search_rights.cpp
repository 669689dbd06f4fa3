// Search rights of a user: field values as conditions, hidden fields and no-match-code fields.

#include "users/search_rights.h"

#include "halqvantor/clsVantor.h"
#include "platform/vb_runtime.h"
#include "users/user_directory.h"

namespace halqvantor {
namespace users {
namespace {

constexpr std::string_view kToken = "$(DATE";

std::string DateText(const platform::CivilDate& today, int64_t days) {
  const platform::CivilDate date = platform::AddDays(today, days);
  // The dates a page can use end with the year 9999.
  if (date.year < 100 || date.year > 9999) vb::Raise(ErrorNumber::kOverflow);
  return platform::FormatDate(date);
}

}  // namespace

std::string ExpandDateTokens(std::string value, const platform::CivilDate& today) {
  int64_t p = vb::InStr(1, vb::UCase(value), kToken);
  // A token followed by anything but ")", "+" or "-" with no ")" after it sends the scan back to position 1,
  // where it finds the same token again: left to itself, the scan would never end. It only ever
  // returns to position 1 that way, so the value seen at the previous return is kept: finding it unchanged
  // means the scan is going round in circles, and the value is refused instead.
  bool restarted = false;
  std::string value_at_restart;
  while (p > 0) {
    const int64_t q = vb::InStr(p, value, ")");
    const std::string c = vb::Mid(value, p + 6, 1);
    if (c == ")") {
      value = vb::Left(value, p - 1) + DateText(today, 0) + vb::Mid(value, q + 1);
    } else if (c == "+" || c == "-") {
      // A missing ")" makes this length negative, which fails.
      const int64_t days = Variant(vb::Mid(value, p + 7, q - p - 7)).ToLong();
      value = vb::Left(value, p - 1) + DateText(today, c == "+" ? days : -days) + vb::Mid(value, q + 1);
    }
    if (q == 0) {
      if (restarted && value == value_at_restart) {
        throw RuntimeError(ErrorNumber::kInvalidProcedureCall,
                           RuntimeError::StandardText(ErrorNumber::kInvalidProcedureCall) +
                               " (date token without closing parenthesis in '" + value + "')");
      }
      restarted = true;
      value_at_restart = value;
    }
    p = vb::InStr(q + 1, vb::UCase(value), kToken);
  }
  return value;
}

}  // namespace users

using users::ColumnText;
using users::Database;
using users::Logged;
using users::OutText;
using users::SqlNumber;

namespace {

std::string SearchRightsStatement(std::string_view select, const std::string& id, std::string_view tail) {
  std::string sql(select);
  sql += " FROM UserSearchRights, SearchRights, SearchRightFields WHERE ";
  sql += "UserSearchRights.SearchRightID=SearchRights.SearchRightID AND ";
  sql += "SearchRights.SearchRightID=SearchRightFields.SearchRightID AND ";
  sql += "((UserID=" + id + ") OR (UserID IN (SELECT GroupID FROM UserGroups WHERE UserID=" + id;
  sql += tail;
  return sql;
}

// Passes 2 and 3: per archive a line "$(#channel)\archive;" + ".field" joined by ",", lines joined by CR LF.
void FieldListPass(LinkSession& d, const std::string& sql, Variant* out) {
  OutText text(out);
  std::string& t = text.text();
  std::string last_key;
  int32_t fields = 0;
  std::unique_ptr<platform::Recordset> rs = Database(d).Execute(sql);
  while (rs && !rs->Eof()) {
    const std::string channel = ColumnText(rs->Field(0));
    const std::string archive = ColumnText(rs->Field(1));
    if (channel + archive != last_key) {
      last_key = channel + archive;
      if (!t.empty()) t += d.LineBreak;
      t += "$(#" + channel + ")\\" + archive + ";";
      fields = 0;
    }
    if (fields > 0) t += ",";
    t += "." + ColumnText(rs->Field(2));
    ++fields;
    rs->MoveNext();
  }
}

}  // namespace

Variant clsVantor::GetUserSearchRights(const Variant& lngUserID, Variant* strSearchRights,
                                       Variant* strSearchRightsHideField, Variant* strSearchRightsNoMatchcode) {
  LinkSession& d = SessionOf(*this);
  return Logged(d, "GetUserSearchRights", [&] {
    int32_t blocks = 0;
    {
      OutText text(strSearchRights);
      std::string& t = text.text();
      const std::string id = SqlNumber(lngUserID, "lngUserID");
      const platform::CivilDate today = d.env->Today();
      std::string last_key;
      std::string last_field;
      int32_t values = 0;
      std::unique_ptr<platform::Recordset> rs = Database(d).Execute(SearchRightsStatement(
          "SELECT DISTINCT Channel, Archive, FieldID, Val", id, "))) AND Val <> '' ORDER BY 1,2,3"));
      while (rs && !rs->Eof()) {
        const std::string channel = ColumnText(rs->Field(0));
        const std::string archive = ColumnText(rs->Field(1));
        const std::string field = ColumnText(rs->Field(2));
        // Channel and archive are joined without a separator, so "AB"+"C" and "A"+"BC" share one block.
        if (channel + archive != last_key) {
          last_key = channel + archive;
          last_field.clear();
          if (!t.empty()) t += ")" + d.LineBreak;
          t += "$(#" + channel + ")\\" + archive + ";";
          ++blocks;
          values = 0;
        }
        if (field != last_field) {
          last_field = field;
          if (values > 0) t += ")&";
          t += "." + field + "=(";
        }
        const std::string value = users::ExpandDateTokens(ColumnText(rs->Field(3)), today);
        if (!t.ends_with("=(")) t += ' ';
        t += value;
        ++values;
        rs->MoveNext();
      }
      if (rs) rs->Close();
      if (!t.empty()) t += ")";
    }
    const std::string id = SqlNumber(lngUserID, "lngUserID");
    FieldListPass(
        d, SearchRightsStatement("SELECT DISTINCT Channel, Archive, FieldID", id, "))) AND HideField=1 ORDER BY 1,2,3"),
        strSearchRightsHideField);
    FieldListPass(
        d,
        SearchRightsStatement("SELECT DISTINCT Channel, Archive, FieldID", id, "))) AND NoMatchcode=1 ORDER BY 1,2,3"),
        strSearchRightsNoMatchcode);
    return Variant(blocks);
  });
}

}  // namespace halqvantor
