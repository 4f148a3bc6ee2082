#pragma once

#include "extract/model/LanguageModel.h"

#include <QString>

// The texts that say what went wrong with a model request, as the transcript and the activity log show
// them. Error texts come from the model server and are untrusted: each is made one line of bounded
// length.
namespace Extractor {
// The title of the error's case ("Busy", "Refused", ...; "Error" for any other), then its description
// when it has one, joined by ". ".
QString describe(const GenerationError &error);
// The model's explanation of a refusal, or "(no explanation: " + the error's description + ")" when it
// gave none.
QString explanation(const GenerationError &refusal);
// The message of a `retryLater`: the error's description, or its title when it has none.
QString retryMessage(const GenerationError &error);
// Whether the error means the model can't serve now (unavailable, rate limited, busy), so the scan is
// tried again later rather than read on.
bool meansRetryLater(const GenerationError &error);
} // namespace Extractor
