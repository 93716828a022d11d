#include "mtx/impl/matrix/ORXSrvMtxErrors.h"

#include "mtx/ORXSrvMtxOpenFileException.h"

atr_String ORXSrvMtxMessage(char const* messageTemplate) { return atr_translate(messageTemplate).Result(); }

atr_String ORXSrvMtxMessage(char const* messageTemplate, atr_String const& argument) {
  atr_translate message(messageTemplate);
  message.Substitute(atr_SubstituteFormat(1, argument.AsText()));
  return message.Result();
}

atr_String ORXSrvMtxMessage(char const* messageTemplate, int argument) {
  atr_translate message(messageTemplate);
  message.Substitute(atr_SubstituteFormat(1, argument));
  return message.Result();
}

ORXSrvMtxOpenFileException::ORXSrvMtxOpenFileException(char const* path)
    : m_path(ORXSrvMtxMessage("%s", atr_String(path))) {}
ORXSrvMtxOpenFileException::~ORXSrvMtxOpenFileException() = default;
atr_String ORXSrvMtxOpenFileException::AsString() const {
  return ORXSrvMtxMessage("ORXSrvSparseImExPorter: Failed to open file %s.", m_path);
}
void ORXSrvMtxOpenFileException::Raise() const { throw *this; }
int ORXSrvMtxOpenFileException::ErrorCode() const { return 202; }
