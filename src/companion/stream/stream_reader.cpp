#include "companion/stream/stream_reader.h"

namespace velmox {

void StreamReader::feed(std::string_view bytes)
{
    scanner_.feed(bytes);
    drain();
}

void StreamReader::finish()
{
    scanner_.finish();
    drain();
}

void StreamReader::drain()
{
    while (const std::optional<FrameScanner::Piece> piece = scanner_.next()) {
        switch (piece->kind) {
        case FrameScanner::Kind::StreamStart:
            ++stream_;
            break;
        case FrameScanner::Kind::Event:
            readEvent(*piece);
            break;
        case FrameScanner::Kind::Damage:
            onDamage_(piece->offset, piece->text);
            break;
        }
    }
}

void StreamReader::readEvent(const FrameScanner::Piece &piece)
{
    if (!xml_.read(piece.text, elements_)) {
        onDamage_(piece.offset, "an event is not well-formed XML");
        return;
    }
    StreamEvent event;
    event.stream = stream_;
    event.stanza = elements_.stanza;
    event.index = elements_.index;
    event.host = elements_.host;
    event.time = elements_.time;
    if (!readEventData(elements_.data, event)) {
        onDamage_(piece.offset, "the data of an event is not as the monitor writes it");
        return;
    }
    onEvent_(event);
}

} // namespace velmox
