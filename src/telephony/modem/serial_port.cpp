#include "telephony/modem/serial_port.h"

#include <fcntl.h>
#include <linux/serial.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace corvel::modem {
namespace {

speed_t speedFor(int baud)
{
    switch (baud) {
    case 9600: return B9600;
    case 19200: return B19200;
    case 38400: return B38400;
    case 57600: return B57600;
    case 230400: return B230400;
    case 460800: return B460800;
    case 921600: return B921600;
    default: return B115200;
    }
}

} // namespace

int SerialPort::open(const std::filesystem::path& device, int baud)
{
    close();
    const int fd = ::open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return errno;
    const auto fail = [&](int error) {
        ::close(fd);
        return error;
    };
    termios old{};
    if (::tcgetattr(fd, &old) != 0) return fail(errno == EINVAL ? ENOTTY : errno);
    // A ttyS* node with no UART behind it answers the ioctl with an unknown port type.
    serial_struct serial{};
    if (::ioctl(fd, TIOCGSERIAL, &serial) == 0 && serial.type == PORT_UNKNOWN) return fail(ENODEV);

    termios raw = old;
    ::cfmakeraw(&raw);
    raw.c_cflag &= ~static_cast<tcflag_t>(CSTOPB | PARENB | CSIZE);
    raw.c_cflag |= CS8 | CLOCAL | CREAD | CRTSCTS | HUPCL;
    raw.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF | IXANY);
    // VMIN 1, so that a read with nothing waiting says EAGAIN; 0 would make it look like end-of-file.
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    ::cfsetispeed(&raw, speedFor(baud));
    ::cfsetospeed(&raw, speedFor(baud));
    if (::tcsetattr(fd, TCSANOW, &raw) != 0) return fail(errno);
    ::tcflush(fd, TCIOFLUSH); // whatever the modem said before we came is not an answer to us

    fd_ = fd;
    device_ = device;
    saved_.assign(reinterpret_cast<const char*>(&old), sizeof old);
    haveSaved_ = true;
    setDtr(true);
    return 0;
}

long SerialPort::read(std::span<std::uint8_t> into)
{
    if (fd_ < 0) return -EBADF;
    for (;;) {
        const ssize_t n = ::read(fd_, into.data(), into.size());
        if (n > 0) return n;
        if (n == 0) return -EIO; // a tty reads end-of-file only once the device has hung up
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) return 0;
        return -errno;
    }
}

long SerialPort::write(std::span<const std::uint8_t> bytes)
{
    if (fd_ < 0) return -EBADF;
    if (bytes.empty()) return 0;
    for (;;) {
        const ssize_t n = ::write(fd_, bytes.data(), bytes.size());
        if (n >= 0) return n;
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) return 0;
        return -errno;
    }
}

void SerialPort::discardOutput()
{
    if (fd_ >= 0) ::tcflush(fd_, TCOFLUSH);
}

void SerialPort::drainFor(int limitMs)
{
    for (int waited = 0; fd_ >= 0 && waited < limitMs; waited += 5) {
        int queued = 0;
        if (::ioctl(fd_, TIOCOUTQ, &queued) != 0 || queued <= 0) return;
        ::usleep(5000);
    }
}

int SerialPort::setDtr(bool on)
{
    if (fd_ < 0) return EBADF;
    const int bits = TIOCM_DTR;
    return ::ioctl(fd_, on ? TIOCMBIS : TIOCMBIC, &bits) == 0 ? 0 : errno;
}

int SerialPort::close()
{
    if (fd_ < 0) return 0;
    int error = 0;
    if (haveSaved_) {
        termios old{};
        std::memcpy(&old, saved_.data(), sizeof old);
        // Output still queued would hold close() until it drains: it is of no use to anyone now.
        int queued = 0;
        if (::ioctl(fd_, TIOCOUTQ, &queued) == 0 && queued > 0) ::tcflush(fd_, TCOFLUSH);
        if (::tcsetattr(fd_, TCSANOW, &old) != 0 && errno != EIO) error = errno;
    }
    if (::close(fd_) != 0 && error == 0) error = errno;
    fd_ = -1;
    haveSaved_ = false;
    return error;
}

} // namespace corvel::modem
