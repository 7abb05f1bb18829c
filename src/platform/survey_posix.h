// The Linux survey of a system that lies below a folder: "" for the running one. Only for the
// POSIX siblings of the seam and their tests.
#pragma once

#include <memory>
#include <string>

#include "platform/survey.h"

namespace korvane::platform {

// `below` is put before "/proc", "/var/lib/dpkg/status" and so on; the roots of walks are not changed.
[[nodiscard]] std::unique_ptr<Survey> makePosixSurvey(std::string below);

// The parts of it, one file each.
void surveyPackages(SurveyGuide& guide, const std::string& below,
                    const Survey::Taker<SurveyedApplication>& take);
void surveyUnits(SurveyGuide& guide, const std::string& below,
                 const Survey::Taker<SurveyedService>& take);
void surveyProcesses(SurveyGuide& guide, const std::string& below,
                     const Survey::Taker<SurveyedProcess>& take);
void surveyPorts(SurveyGuide& guide, const std::string& below,
                 const Survey::Taker<SurveyedPort>& take);
void surveyDesktopEntries(SurveyGuide& guide, const std::string& below,
                          const Survey::Taker<SurveyedShortcut>& take);
[[nodiscard]] int walkFiles(SurveyGuide& guide, const std::string& root,
                            std::unique_ptr<FileWalk>& out);

}  // namespace korvane::platform
