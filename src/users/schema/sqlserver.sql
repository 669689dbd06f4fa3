-- The user directory: users and groups, their rights, and the document and search rights they are granted.
-- The SQL Server form: texts are NVARCHAR so that names and values keep every character. Groups are rows
-- of Users too: a group's UserID is the GroupID of its members in UserGroups.

CREATE TABLE Users (
  UserID     INT NOT NULL PRIMARY KEY,
  UserName   NVARCHAR(255) NOT NULL,
  Passwd     NVARCHAR(255),         -- encoded; NULL: no log-on with a password
  EASYUser   NVARCHAR(255),         -- archive account, plain
  EASYPasswd NVARCHAR(255)           -- archive password, encoded
);
CREATE INDEX UsersByName ON Users (UserName);

CREATE TABLE UserGroups (
  UserID  INT NOT NULL,
  GroupID INT NOT NULL,
  PRIMARY KEY (UserID, GroupID)
);

CREATE TABLE UserRights (
  UserID  INT NOT NULL,
  RightID NVARCHAR(50) NOT NULL,
  PRIMARY KEY (UserID, RightID)
);

CREATE TABLE UserArchives (
  UserID  INT NOT NULL,
  Archive NVARCHAR(255) NOT NULL,
  PRIMARY KEY (UserID, Archive)
);

CREATE TABLE UserChannels (
  UserID  INT NOT NULL,
  Channel NVARCHAR(255) NOT NULL,
  PRIMARY KEY (UserID, Channel)
);

-- Flags per archive; a user's flags are summed with those of his groups, above 0 means granted.
CREATE TABLE UserEditRights (
  UserID  INT NOT NULL,
  Archive NVARCHAR(255) NOT NULL,
  New     INT NOT NULL DEFAULT 0,
  Edit    INT NOT NULL DEFAULT 0,
  Del     INT NOT NULL DEFAULT 0,
  PRIMARY KEY (UserID, Archive)
);

CREATE TABLE DocRights (
  DocRightID INT NOT NULL PRIMARY KEY,
  Channel    NVARCHAR(255) NOT NULL,
  Archive    NVARCHAR(255) NOT NULL
);

CREATE TABLE DocRightFields (
  DocRightID INT NOT NULL,
  FieldID    INT NOT NULL,
  Operator   NVARCHAR(10) NOT NULL,
  Val        NVARCHAR(255) NOT NULL,
  Type       INT NOT NULL,
  Grade      INT NOT NULL
);
CREATE INDEX DocRightFieldsByRight ON DocRightFields (DocRightID);

CREATE TABLE UserDocRights (
  UserID     INT NOT NULL,
  DocRightID INT NOT NULL,
  PRIMARY KEY (UserID, DocRightID)
);

CREATE TABLE SearchRights (
  SearchRightID INT NOT NULL PRIMARY KEY,
  Channel       NVARCHAR(255) NOT NULL,
  Archive       NVARCHAR(255) NOT NULL
);

-- Per field a value (may be empty; it may hold $(DATE), $(DATE+n), $(DATE-n)) and two flags.
CREATE TABLE SearchRightFields (
  SearchRightID INT NOT NULL,
  FieldID       INT NOT NULL,
  Val           NVARCHAR(255) NOT NULL DEFAULT '',
  HideField     INT NOT NULL DEFAULT 0,
  NoMatchcode   INT NOT NULL DEFAULT 0
);
CREATE INDEX SearchRightFieldsByRight ON SearchRightFields (SearchRightID);

CREATE TABLE UserSearchRights (
  UserID        INT NOT NULL,
  SearchRightID INT NOT NULL,
  PRIMARY KEY (UserID, SearchRightID)
);
