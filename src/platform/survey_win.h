// The parts of the Windows survey, one file each, and what they share. Only for the Win32
// siblings of the seam.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/handles_win.h"
#include "platform/survey.h"

namespace korvane::platform {

void surveyUninstallKeys(SurveyGuide& guide, const Survey::Taker<SurveyedApplication>& take);
void surveyRegistry(SurveyGuide& guide, const std::string& key, size_t depth,
                    const Survey::Taker<SurveyedValue>& take);
void surveyServiceManager(SurveyGuide& guide, const Survey::Taker<SurveyedService>& take);
void surveyProcesses(SurveyGuide& guide, const Survey::Taker<SurveyedProcess>& take);
void surveyPorts(SurveyGuide& guide, const Survey::Taker<SurveyedPort>& take);
void surveyShellLinks(SurveyGuide& guide, const Survey::Taker<SurveyedShortcut>& take);
[[nodiscard]] int walkFiles(SurveyGuide& guide, const std::string& root,
                            std::unique_ptr<FileWalk>& out);

// "1.2.3.4" of a program's or library's version resource; empty without one.
std::string versionOfFile(const std::string& path);
// The subject of the certificate of a signature in the file that the system trusts, without asking the network.
std::string signerOfFile(const std::string& path);

// The names of the keys below one, while the guide lets it.
void eachSubkey(SurveyGuide& guide, HKEY key, const std::function<void(const std::wstring&)>& each);
// A string value with its variables expanded; empty without one.
std::string stringValue(HKEY key, const wchar_t* name);
// The program of a process; its error number in `error` when it may not be asked.
std::string imageOfProcess(DWORD id, DWORD& error);

}  // namespace korvane::platform
