#include "outside.h"

using korvane::FileLogPointer;

void useFileLogPointer(const STRING& folder) {
  const STRING path = folder + text("hidslog1rtfilepointer");
  FileLogPointer fresh(path);
  expect(fresh.getCurrentLogName() == text("") && fresh.getOffset() == 0,
         "a fresh pointer is empty");
  fresh.setCurrentLogName(text("events1.csv"));
  fresh.setOffset(1000);
  fresh.addOffset(-1);
  fresh.setStartTimeStamp(text("start"));
  fresh.setEndTimeStamp(text("end"));
  fresh.writePointer();

  FileLogPointer loaded(path);
  FileLogPointer copied(loaded);
  FileLogPointer assigned(folder + text("none"));
  assigned = copied;
  korvane::LogPointer& base = assigned;
  expect(base.getCurrentLogName() == text("events1.csv") && base.getOffset() == 999 &&
             base.getStartTimeStamp() == text("start") && base.getEndTimeStamp() == text("end"),
         "a pointer that was written is read again");

  try {
    FileLogPointer nowhere(folder + text("no such folder/pointer"));
    nowhere.writePointer();
    expect(false, "a pointer without a folder cannot be written");
  } catch (const korvane::FileError& error) {
    expect(error.errnoValue() == 2 && error.operation() == text("writePointer"), "the file error");
  }
}
