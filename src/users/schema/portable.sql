-- The user directory: users and groups, their rights, and the document and search rights they are granted.
-- Plain SQL that SQLite and PostgreSQL (and most other servers) accept; names are written without quotes,
-- so a server that folds names to lower case keeps them usable. Groups are rows of Users too: a group's
-- UserID is the GroupID of its members in UserGroups.

CREATE TABLE Users (
  UserID     INTEGER NOT NULL PRIMARY KEY,
  UserName   VARCHAR(255) NOT NULL,
  Passwd     VARCHAR(255),          -- encoded; NULL: no log-on with a password
  EASYUser   VARCHAR(255),          -- archive account, plain
  EASYPasswd VARCHAR(255)           -- archive password, encoded
);
CREATE INDEX UsersByName ON Users (UserName);

CREATE TABLE UserGroups (
  UserID  INTEGER NOT NULL,
  GroupID INTEGER NOT NULL,
  PRIMARY KEY (UserID, GroupID)
);

CREATE TABLE UserRights (
  UserID  INTEGER NOT NULL,
  RightID VARCHAR(50) NOT NULL,
  PRIMARY KEY (UserID, RightID)
);

CREATE TABLE UserArchives (
  UserID  INTEGER NOT NULL,
  Archive VARCHAR(255) NOT NULL,
  PRIMARY KEY (UserID, Archive)
);

CREATE TABLE UserChannels (
  UserID  INTEGER NOT NULL,
  Channel VARCHAR(255) NOT NULL,
  PRIMARY KEY (UserID, Channel)
);

-- Flags per archive; a user's flags are summed with those of his groups, above 0 means granted.
CREATE TABLE UserEditRights (
  UserID  INTEGER NOT NULL,
  Archive VARCHAR(255) NOT NULL,
  New     INTEGER NOT NULL DEFAULT 0,
  Edit    INTEGER NOT NULL DEFAULT 0,
  Del     INTEGER NOT NULL DEFAULT 0,
  PRIMARY KEY (UserID, Archive)
);

CREATE TABLE DocRights (
  DocRightID INTEGER NOT NULL PRIMARY KEY,
  Channel    VARCHAR(255) NOT NULL,
  Archive    VARCHAR(255) NOT NULL
);

CREATE TABLE DocRightFields (
  DocRightID INTEGER NOT NULL,
  FieldID    INTEGER NOT NULL,
  Operator   VARCHAR(10) NOT NULL,
  Val        VARCHAR(255) NOT NULL,
  Type       INTEGER NOT NULL,
  Grade      INTEGER NOT NULL
);
CREATE INDEX DocRightFieldsByRight ON DocRightFields (DocRightID);

CREATE TABLE UserDocRights (
  UserID     INTEGER NOT NULL,
  DocRightID INTEGER NOT NULL,
  PRIMARY KEY (UserID, DocRightID)
);

CREATE TABLE SearchRights (
  SearchRightID INTEGER NOT NULL PRIMARY KEY,
  Channel       VARCHAR(255) NOT NULL,
  Archive       VARCHAR(255) NOT NULL
);

-- Per field a value (may be empty; it may hold $(DATE), $(DATE+n), $(DATE-n)) and two flags.
CREATE TABLE SearchRightFields (
  SearchRightID INTEGER NOT NULL,
  FieldID       INTEGER NOT NULL,
  Val           VARCHAR(255) NOT NULL DEFAULT '',
  HideField     INTEGER NOT NULL DEFAULT 0,
  NoMatchcode   INTEGER NOT NULL DEFAULT 0
);
CREATE INDEX SearchRightFieldsByRight ON SearchRightFields (SearchRightID);

CREATE TABLE UserSearchRights (
  UserID        INTEGER NOT NULL,
  SearchRightID INTEGER NOT NULL,
  PRIMARY KEY (UserID, SearchRightID)
);
