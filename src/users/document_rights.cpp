// Document rights of a user for channel/archive pairs, written as bracketed condition blocks.

#include "halqvantor/clsVantor.h"
#include "platform/vb_runtime.h"
#include "users/user_directory.h"

namespace halqvantor {

using users::ColumnText;
using users::Database;
using users::Logged;
using users::OutText;
using users::SqlNumber;

Variant clsVantor::GetUserDocRights(const Variant& lngUserID, const Variant& strChannel, const Variant& strArchive,
                                    Variant* strDocRights) {
  LinkSession& d = SessionOf(*this);
  return Logged(d, "GetUserDocRights", [&] {
    OutText out(strDocRights);
    std::string& text = out.text();
    int32_t blocks = 0;
    const std::string channels = strChannel.ToString() + ",";
    const std::string archives = strArchive.ToString() + ",";
    // Positions are 16-bit, as the lists are walked with Integer counters.
    int16_t channel_start = 1;
    int16_t archive_start = 1;
    int16_t channel_comma = vb::CheckedInt16(vb::InStr(channel_start, channels, ","));
    int16_t archive_comma = vb::CheckedInt16(vb::InStr(archive_start, archives, ","));
    // Only the channel list decides how many pairs there are: an archive list that runs out first gives a
    // negative length below, which fails the operation.
    while (channel_comma > 0) {
      const std::string channel = vb::Mid(channels, channel_start, channel_comma - channel_start);
      const std::string archive = vb::Mid(archives, archive_start, archive_comma - archive_start);
      const std::string id = SqlNumber(lngUserID, "lngUserID");
      std::unique_ptr<platform::Recordset> rs = Database(d).Execute(
          "SELECT DISTINCT DocRightFields.DocRightID, FieldID, Operator, Val, Type, Grade "
          "FROM UserDocRights, DocRights, DocRightFields "
          "WHERE (UserDocRights.DocRightID = DocRights.DocRightID) AND "
          "(DocRights.DocRightID = DocRightFields.DocRightID) AND "
          "((UserID = " +
              id + ") OR (UserID IN (SELECT GroupID FROM UserGroups WHERE UserID=" + id + "))) " +
              "AND (Channel = ?) AND (Archive = ?) " + "ORDER BY DocRightFields.DocRightID, Grade, FieldID",
          {Variant(channel), Variant(archive)});
      // Restarts with every pair, so a right numbered 0 never opens a block of its own.
      double last_right = 0;
      while (rs && !rs->Eof()) {
        const Variant right = rs->Field(0);
        if (!right.IsNull() && right.ToDouble() != last_right) {
          last_right = right.ToDouble();
          if (!text.empty()) text += "]" + d.LineBreak;
          text += "[$(#" + channel + ")\\" + archive;
          ++blocks;
        }
        // The operator takes two places: "=" gets a blank in front, a longer one keeps its last two.
        const std::string op = vb::Right(" " + ColumnText(rs->Field(2)), 2);
        text += ";(" + ColumnText(rs->Field(1)) + op + "\"" + ColumnText(rs->Field(3)) + "\"," +
                ColumnText(rs->Field(4)) + "," + ColumnText(rs->Field(5)) + ")";
        rs->MoveNext();
      }
      if (rs) rs->Close();
      channel_start = vb::CheckedInt16(int64_t{channel_comma} + 1);
      archive_start = vb::CheckedInt16(int64_t{archive_comma} + 1);
      channel_comma = vb::CheckedInt16(vb::InStr(channel_start, channels, ","));
      archive_comma = vb::CheckedInt16(vb::InStr(archive_start, archives, ","));
    }
    if (!text.empty()) text += "]";
    return Variant(blocks);
  });
}

}  // namespace halqvantor
