// The events of the agent's own log by name. Their types and texts are in catalogue.txt, in the
// same order; a test keeps the two together.
#pragma once

namespace korvane {

enum class EventId : int {
  // Registration and life of the agent
  registrationFailed = 10100,
  registrationPutOff = 10102,
  registered = 10103,
  builtInPolicyInUse = 10104,
  agentStarted = 10106,
  shutdownAfterRegistration = 10107,
  shuttingDown = 10109,
  agentStopped = 10110,
  // The driver
  driverNotOpened = 10112,
  driverEventNotCreated = 10116,
  driverWaitAbandoned = 10117,
  driverRequestTimedOut = 10118,
  driverRequestFailed = 10119,
  // The policy
  policyInForce = 10121,
  idsPolicyNotTranslated = 10133,
  // Forwarding of logs
  logForwardingError = 10135,
  logForwardingDisabled = 10136,
  // The policy and the management server
  assignedPolicyInUse = 10166,
  managementServer = 10167,
  serverChanged = 10168,
  serverChangedByTest = 10169,
  pointerFileNotOpened = 10176,
  logNotOpened = 10185,
  // Communication with the management server
  ownAddressesNotRead = 10201,
  reconnecting = 10202,
  configurationWithoutTime = 10203,
  configurationWithoutId = 10204,
  eventsRefused = 10213,
  eventsAcceptedAgain = 10214,
  serverError = 10217,
  softwareRequestRefused = 10218,
  serverWorking = 10219,
  nothingSent = 10221,
  httpError = 10222,
  transferFailed = 10223,
  noTransferHandle = 10224,
  transferHandleNotCreated = 10225,
  eventsDropped = 10227,
  notificationSocketNotCreated = 10228,
  notificationSocketNotBound = 10229,
  notificationSocketNotListening = 10230,
  contentRequestRefused = 10232,
  driverOpensAgain = 10400,
  // The agent's own log
  catalogueUnusable = 10500,
  ownLogRecordsLost = 10501,
  responseUnusable = 10510,
  plainHttpAllowed = 10511,
  serverEntriesLeftOut = 10512,
  // The configuration
  settingsFileDamaged = 10520,
  settingsFromOtherFile = 10521,
  settingsNotRead = 10522,
  lockFileNotAcquired = 10523,
  fipsNotSwitched = 10524,
  settingValuesIgnored = 10525,
  configurationPartlyRefused = 10526,
  settingForbidden = 10527,
  // The translator library
  translatorNotLoaded = 10530,
  translatorUnusable = 10531,
  translatorNotInitialised = 10532,
  translatorValuesCut = 10533,
  // Forwarding of logs
  logLineSkipped = 10551,
  logListUnusable = 10552,
  logListNotWritten = 10553,
  logPassedOver = 10554,
  logListFull = 10555,
  // Life of the agent
  agentNotStarted = 10560,
  shutdownAfterError = 10561,
  shutdownStepFailed = 10562,
  unsafeFileUsed = 10563,
  unsafeFileNotUsed = 10564,
  // Updates
  updateThreadStopped = 10580,
  builtInPolicyRefused = 10581,
  builtInPolicyApplied = 10583,
  packageRejected = 10585,
  contentHandedOver = 10586,
  contentNotHandedOver = 10587,
  translationItemsNotRead = 10590,
  translationItemsDamaged = 10591,
  translatorTerminated = 10592,
  formerPolicyNotAccepted = 10593,
  policyChangeRolledBack = 10594,
  policyChangeNotRolledBack = 10595,
  policyJournalDamaged = 10596,
  contentNotProven = 10597,
  signersReplaced = 10598,
  // The local channel
  localChannelUnusable = 10600,
  eventChannelUnusable = 10610,
  noEventCarrier = 10611,
  eventCarrierFailed = 10612,
  eventCarrierThrottles = 10613,
  eventCarrierAcceptsAgain = 10614,
  eventChannelProgramRefused = 10615,
  // The cloud command channel
  applicationPolicyDamaged = 10620,
  applicationPoliciesNotApplied = 10621,
  applicationFolderMismatch = 10622,
  // Application data
  applicationDataCollected = 10710,
  applicationDataAnswered = 10711,
  applicationDataNotCollected = 10712,
  applicationDataNotTaken = 10713,
  applicationDataGivenUp = 10714,
  applicationDataDamaged = 10716,
  applicationDataNotNoted = 10717,
};

}  // namespace korvane
