// The lines that q7 can write, by step: what it prints, what it reports in records, and what its
// helpers write to standard error.
#include <algorithm>
#include <iterator>

#include "station/grammar.h"

namespace station {

Grammar::Row Grammar::row(Source source, Step step, const char* pattern,
                          bool (Grammar::*act)(const Row&), const char* first, const char* second,
                          const char* unit) {
    return {Pattern(pattern), source, act, step, first, second, unit};
}

// Start.
std::vector<Grammar::Row> Grammar::start_rows() {
    return {
        row(Source::printed, Step::start,
            "g_bSupFrontPanel[{d}],g_iUsbNum[{d}],g_iCordNo[{d}],g_iAlarmOutNum[{d}],"
            "g_iAlarmInNum[{d}],g_sata_port_num[{d}],g_cESataNum[{d}],g_cMiniSASNum[{d}],"
            "g_cSataNewRule[{d}]",
            &Grammar::capability),
        row(Source::printed, Step::start, "no kill avcore", &Grammar::settled),
        row(Source::printed, Step::start, "切换到超级用户失败，可能会对Q7的某些项测试有影响",
            &Grammar::word_fact, "start.root", "no"),
        row(Source::printed, Step::start, "第{d}次测试", &Grammar::repetition),
        row(Source::printed, Step::start, "打开命名管道出错", &Grammar::failure),
        row(Source::printed, Step::start, "参数非法", &Grammar::failure),
        row(Source::printed, Step::start, "请选择测试序号(1~{d})", &Grammar::failure),
        row(Source::printed, Step::start, "请输入正确的测试序号.(1~{d})", &Grammar::failure),
        row(Source::printed, Step::start, "打开hwInfo设备出错!", &Grammar::failure),
        row(Source::printed, Step::start, "初始化看门狗失败!", &Grammar::failure),
        row(Source::printed, Step::start, "sysInit 1 Fatal", &Grammar::failure),
        row(Source::printed, Step::start, "open {w} failed, errno:{d},{s}", &Grammar::failure),
        row(Source::printed, Step::start, "can not creat HB thread", &Grammar::failure),
    };
}

// Headings.
std::vector<Grammar::Row> Grammar::heading_rows() {
    return {
        row(Source::reported, Step::buzzer, "第{d}步:蜂鸣器测试", &Grammar::heading),
        row(Source::reported, Step::panel, "第{d}步:按键测试", &Grammar::heading),
        row(Source::reported, Step::network, "第{d}步:网络状态", &Grammar::heading),
        row(Source::reported, Step::alarm, "第{d}步:报警量测试，请确认已经连接好报警测试装置",
            &Grammar::heading),
        row(Source::reported, Step::rtc, "第{d}步:开始测试RTC", &Grammar::heading),
        row(Source::reported, Step::rs485, "第{d}步:485测试", &Grammar::heading),
        row(Source::reported, Step::info, "第{d}步:CPLD信息", &Grammar::heading),
        row(Source::reported, Step::start, "第{d}步:", &Grammar::heading_number_alone),
        row(Source::reported, Step::usb, "USB口测试", &Grammar::heading_behind_number),
        row(Source::reported, Step::sata, "SATA硬盘测试", &Grammar::heading_behind_number),
        row(Source::reported, Step::rs485, "请确认已经正确连接好485测试装置", &Grammar::known),
    };
}

// Anywhere.
std::vector<Grammar::Row> Grammar::anywhere_rows() {
    return {
        row(Source::printed, Step::start, "write error file = {s} ,line = {d} ", &Grammar::lost),
        row(Source::printed, Step::buzzer, "open hwInfo error!", &Grammar::failure),
        row(Source::printed, Step::start, "signal failed", &Grammar::failure),
        row(Source::printed, Step::start, "tcsetattr failed", &Grammar::failure),
        row(Source::printed, Step::panel, "receive {d}:{d} replies", &Grammar::interrupted),
        row(Source::printed, Step::alarm, "success is {d}, and error is {d}",
            &Grammar::interrupted),
        row(Source::printed, Step::rtc, "read rtc successfully {d} times : failed {d} times",
            &Grammar::interrupted),
    };
}

// Front panel.
std::vector<Grammar::Row> Grammar::panel_rows() {
    return {
        row(Source::printed, Step::panel,
            "面板输入ENTER点亮1.3.5.7 奇数通道灯再点亮2.4.6.8偶数通道灯", &Grammar::known),
        row(Source::printed, Step::panel, "面板输入UP点亮所有录象灯+所有功能灯", &Grammar::known),
        row(Source::printed, Step::panel, "面板输入DOWN关闭所有录象灯+所有功能灯", &Grammar::known),
        row(Source::printed, Step::panel, "面板输入LEFT点亮所有网络连接显示灯", &Grammar::known),
        row(Source::printed, Step::panel, "面板输入RIGHT关闭所有网络连接显示灯", &Grammar::known),
        row(Source::printed, Step::panel, "面板输入ESC退出测试", &Grammar::known),
        row(Source::printed, Step::panel, "unknow key", &Grammar::count, "unknown_keys"),
        row(Source::printed, Step::panel, "control pannel is pressed", &Grammar::count,
            "other_frames"),
        row(Source::printed, Step::panel, "main control keyboard is pressed", &Grammar::count,
            "other_frames"),
        row(Source::printed, Step::panel, "other messages is received", &Grammar::count,
            "other_frames"),
        row(Source::printed, Step::panel, "read failed", &Grammar::count, "read_failures"),
        row(Source::reported, Step::panel, "led_test_func error", &Grammar::failure),
    };
}

// Network.
std::vector<Grammar::Row> Grammar::network_rows() {
    return {
        row(Source::printed, Step::network, "现在测试电口网络", &Grammar::port_type, "copper"),
        row(Source::printed, Step::network, "现在测试光口网络", &Grammar::port_type, "fibre"),
        row(Source::printed, Step::network, "切换电口失败", &Grammar::port_refused, "copper"),
        row(Source::printed, Step::network, "切换光口失败", &Grammar::port_refused, "fibre"),
        row(Source::printed, Step::network, "creat socket error", &Grammar::no_socket),
        row(Source::reported, Step::network, "网卡个数超过支持上限,网口个数为 {d}",
            &Grammar::failure),
        row(Source::reported, Step::network, "网卡{d}:{s}", &Grammar::port_number),
        row(Source::reported, Step::network, "网络连接接通 ", &Grammar::port_link, "up"),
        row(Source::reported, Step::network, "网络连接断开 ", &Grammar::port_link, "down"),
        row(Source::reported, Step::network, "ETHTOOL_GLINK failed: ", &Grammar::port_link,
            "unknown"),
        row(Source::reported, Step::network, "全双工  {d}M", &Grammar::port_speed, "full"),
        row(Source::reported, Step::network, "半双工  {d}M", &Grammar::port_speed, "half"),
        row(Source::reported, Step::network, "全双工  net speed error", &Grammar::port_speed,
            "full"),
        row(Source::reported, Step::network, "半双工  net speed error", &Grammar::port_speed,
            "half"),
        row(Source::reported, Step::network, "ETHTOOL_GLINK failed", &Grammar::port_speed_failed),
        row(Source::reported, Step::network, "请检查网络测试环境是否为千M网络",
            &Grammar::port_hint),
        row(Source::printed, Step::network, "ioctl ZEBIO_GET_BOOT_PARMS error", &Grammar::failure),
    };
}

// Alarm.
std::vector<Grammar::Row> Grammar::alarm_rows() {
    return {
        row(Source::reported, Step::alarm,
            "报警输出个数为{d},暂时不支持该个数,请检查CPLD信息是否正确", &Grammar::failure),
        row(Source::reported, Step::alarm, "报警输入有{d}个,报警输出有{d}个",
            &Grammar::alarm_counts),
        row(Source::printed, Step::alarm, "open /dev/iop failed", &Grammar::failure),
        row(Source::reported, Step::alarm, "IOCTL ERROR", &Grammar::failure),
        row(Source::reported, Step::alarm, " 断开报警输出时, 报警输入正常", &Grammar::alarm_idle,
            "good"),
        row(Source::reported, Step::alarm, " 断开报警输出时, 报警输入为 {x} ，报警输入应为 0",
            &Grammar::alarm_idle, "bad"),
        row(Source::reported, Step::alarm, " 报警输出为 {x}, 报警输入为 {x} ，报警输入应为 {x}",
            &Grammar::alarm_mismatch),
        row(Source::reported, Step::alarm, "成功 {d}, 失败 {d}", &Grammar::alarm_result),
    };
}

// RTC.
std::vector<Grammar::Row> Grammar::rtc_rows() {
    return {
        row(Source::reported, Step::rtc, "{d}-{d}-{d} {d}:{d}:{d}", &Grammar::clock),
        row(Source::reported, Step::rtc, "时钟时间 {d}-{d}-{d} {d}:{d}:{d}", &Grammar::clock,
            "clock"),
        row(Source::reported, Step::rtc, "系统时间 {d}-{d}-{d} {d}:{d}:{d}", &Grammar::clock,
            "system"),
    };
}

// USB.
std::vector<Grammar::Row> Grammar::usb_rows() {
    return {
        row(Source::reported, Step::usb, "/dev/{w} 剩余空间 = {d}M", &Grammar::usb_disk),
        row(Source::reported, Step::usb, "Failed to statfs{s}", &Grammar::usb_failed),
        row(Source::reported, Step::usb, "没有接usb", &Grammar::usb_none),
        row(Source::printed, Step::usb, "后面板上面的USB口插着的U盘是3.0U盘", &Grammar::usb_rear,
            "upper", "3.0"),
        row(Source::printed, Step::usb, "后面板上面的USB口插着的U盘是2.0U盘或者鼠标",
            &Grammar::usb_rear, "upper", "2.0"),
        row(Source::printed, Step::usb, "后面板上面的USB口没有插U盘", &Grammar::usb_rear, "upper",
            "none"),
        row(Source::printed, Step::usb, "后面板下面的USB口插着的U盘是3.0U盘", &Grammar::usb_rear,
            "lower", "3.0"),
        row(Source::printed, Step::usb, "后面板下面的USB口插着的U盘是2.0U盘或者鼠标",
            &Grammar::usb_rear, "lower", "2.0"),
        row(Source::printed, Step::usb, "后面板下面的USB口没有插U盘", &Grammar::usb_rear, "lower",
            "none"),
        row(Source::printed, Step::usb,
            "3.0usb插3.0U盘测试成功,请在10s内将2.0U盘插入3.0usb进行测试", &Grammar::usb_again),
        row(Source::error, Step::usb, "/dev: {s}", &Grammar::failure),
        // The shell's, where the system's call failed. What is there already does no harm: whether
        // the disk can be mounted there is for mount to say.
        row(Source::error, Step::usb, "mkdir: can't create directory '/mnt/{w}': File exists",
            &Grammar::known),
        row(Source::error, Step::usb, "mkdir: {s}", &Grammar::failure),
        row(Source::error, Step::usb, "mount: {s}", &Grammar::failure),
    };
}

// SATA and miniSAS.
std::vector<Grammar::Row> Grammar::disk_rows() {
    return {
        row(Source::reported, Step::sata, "设备有{d}个sata口", &Grammar::disk_ports, "sata.ports"),
        row(Source::reported, Step::sata, "设备有{d}个miniSAS口", &Grammar::disk_ports,
            "minisas.ports"),
        row(Source::reported, Step::sata, "/dev/{w} 不存在", &Grammar::disk_absent),
        row(Source::reported, Step::sata, "/dev/{w} 无法获取硬盘容量", &Grammar::disk_without_size),
        row(Source::reported, Step::sata, "/dev/{w}", &Grammar::disk_begins),
        row(Source::reported, Step::sata, "序列号    :{s}", &Grammar::disk_text, "serial"),
        row(Source::reported, Step::sata, "型号      :{s}", &Grammar::disk_text, "model"),
        row(Source::reported, Step::sata, "固件版本  :{s}", &Grammar::disk_text, "firmware"),
        row(Source::reported, Step::sata, "硬盘容量  :{d}GB", &Grammar::disk_size),
        row(Source::printed, Step::sata, "send IDENTIFY DEVICE command, return {d}",
            &Grammar::failure),
        row(Source::printed, Step::sata, "invalid devName", &Grammar::failure),
        row(Source::printed, Step::sata, "Can not open {s} ", &Grammar::failure),
        row(Source::printed, Step::sata, "Can not get {s} size ", &Grammar::failure),
        row(Source::printed, Step::sata, "没有找到miniSAS口 ", &Grammar::minisas_absent),
        row(Source::error, Step::sata, "scandir fail, errno = {d}({s})", &Grammar::failure),
    };
}

// RS-485.
std::vector<Grammar::Row> Grammar::rs485_rows() {
    return {
        row(Source::reported, Step::rs485, "正确:    {d}字节  ", &Grammar::rs485_first, "complete"),
        row(Source::reported, Step::rs485, "错误:    {d}字节 ", &Grammar::rs485_second, "complete"),
        row(Source::reported, Step::rs485, "发送  {d}字节成功", &Grammar::rs485_first, "timeout"),
        row(Source::reported, Step::rs485, "    {d}字节失败 ", &Grammar::rs485_second, "timeout"),
        row(Source::printed, Step::rs485, "open {w} failed", &Grammar::failure),
        row(Source::printed, Step::rs485, "no more data can write in 5 seconds,exit ",
            &Grammar::failure),
        row(Source::error, Step::rs485, "select(): {s}", &Grammar::failure),
        row(Source::error, Step::rs485, "read select(): {s}", &Grammar::failure),
    };
}

// Board information.
std::vector<Grammar::Row> Grammar::info_rows() {
    return {
        row(Source::reported, Step::info, "无法识别的CPLD信息({s})", &Grammar::failure),
        row(Source::reported, Step::info, "设备类型 : {s}({s})", &Grammar::info_model),
        row(Source::reported, Step::info, "面板类型:{s}", &Grammar::text_fact, "info.panel"),
        row(Source::reported, Step::info, "ARM主频  : {s}", &Grammar::text_fact, "info.arm"),
        row(Source::reported, Step::info, "内存频率 : {s}", &Grammar::text_fact,
            "info.memory_frequency"),
        row(Source::reported, Step::info, "内存大小 : {s}", &Grammar::text_fact, "info.memory"),
        row(Source::reported, Step::info, "FLASH大小: {s}", &Grammar::text_fact, "info.flash"),
        row(Source::reported, Step::info, "CPLD版本 : {s}年{s}月{s}日", &Grammar::text_fact,
            "info.cpld", "-"),
        row(Source::reported, Step::info, "报警 I/O : {s}", &Grammar::text_fact, "info.alarm_io"),
    };
}

// Summary.
std::vector<Grammar::Row> Grammar::summary_rows() {
    return {
        row(Source::reported, Step::summary,
            "----------------------------------------------------------------", &Grammar::rule),
        row(Source::reported, Step::summary, "Q7测试结果如下:", &Grammar::summary_begins),
        row(Source::reported, Step::summary, "USB口       : {d}  ", &Grammar::number_fact,
            "usb.found"),
        row(Source::reported, Step::summary, "SATA口      : {d}  ", &Grammar::number_fact,
            "sata.found"),
        row(Source::reported, Step::summary, "网络状态      : 成功  ", &Grammar::word_fact,
            "summary.network", "good"),
        row(Source::reported, Step::summary, "网络状态      : 失败  ", &Grammar::word_fact,
            "summary.network", "bad"),
        row(Source::reported, Step::summary, "485口       : 成功  ", &Grammar::word_fact,
            "summary.rs485", "good"),
        row(Source::reported, Step::summary, "485口       : 失败  ", &Grammar::word_fact,
            "summary.rs485", "bad"),
        row(Source::reported, Step::summary, "报警口      : 成功  ", &Grammar::word_fact,
            "summary.alarm", "good"),
        row(Source::reported, Step::summary, "报警口      : 失败  ", &Grammar::word_fact,
            "summary.alarm", "bad"),
        row(Source::reported, Step::summary, "USB口       : 成功  ", &Grammar::word_fact,
            "summary.usb", "good"),
        row(Source::reported, Step::summary, "USB口       : 失败  ", &Grammar::word_fact,
            "summary.usb", "bad"),
        row(Source::reported, Step::summary, "SATA口       : 成功  ", &Grammar::word_fact,
            "summary.sata", "good"),
        row(Source::reported, Step::summary, "SATA口       : 端口{s}无连接",
            &Grammar::sata_missing),
        row(Source::printed, Step::summary, "miniSAS口正常", &Grammar::word_fact, "summary.minisas",
            "good"),
        row(Source::printed, Step::summary, "miniSAS口异常", &Grammar::word_fact, "summary.minisas",
            "bad"),
        row(Source::reported, Step::summary, "Rtc时钟       : 由检测人员判断  ",
            &Grammar::word_fact, "summary.rtc", "person"),
        row(Source::reported, Step::summary, "测试结果:  OK!", &Grammar::console_ok),
        row(Source::printed, Step::summary, "网络状态    : error occured!  ",
            &Grammar::console_faults, "summary.network"),
        row(Source::printed, Step::summary, "485口       : error occured!  ",
            &Grammar::console_faults, "summary.rs485"),
        row(Source::printed, Step::summary, "报警口      : error occured!  ",
            &Grammar::console_faults, "summary.alarm"),
        row(Source::printed, Step::summary, "Rtc时钟     : error occured!  ",
            &Grammar::console_faults, "summary.rtc"),
        row(Source::printed, Step::summary, "USB口       : error occured!  ",
            &Grammar::console_faults, "summary.usb"),
        row(Source::printed, Step::summary, "SATA口      : 端口{s}无连接", &Grammar::sata_missing),
    };
}

// End.
std::vector<Grammar::Row> Grammar::end_rows() {
    return {
        row(Source::reported, Step::end, "测试结束", &Grammar::run_end),
        row(Source::reported, Step::end, "Q7TESTEND", &Grammar::net_end),
        row(Source::printed, Step::end, "测试结束,系统将要重新启动,并恢复出厂设置",
            &Grammar::run_end, "restart"),
        row(Source::printed, Step::end, "remove /dav2/devCfg.bin ERROR", &Grammar::word_fact,
            "sequence.config", "missing"),
        row(Source::printed, Step::end, "remove /dav2/devCfg_backup.bin ERROR", &Grammar::word_fact,
            "sequence.config_backup", "missing"),
        row(Source::printed, Step::end, "failed to open watchdog", &Grammar::failure),
        row(Source::printed, Step::end, "set watchdog timeout failed", &Grammar::failure),
    };
}

// Port multipliers.
std::vector<Grammar::Row> Grammar::pmp_rows() {
    return {
        row(Source::printed, Step::pmp, "sata_port_num = {d} ", &Grammar::number_fact, "pmp.ports"),
        row(Source::printed, Step::pmp, "硬盘个数为{d},请检查CPLD是否正确烧写", &Grammar::failure),
        row(Source::printed, Step::pmp, "open /dev/{w} fail!", &Grammar::known),
        row(Source::printed, Step::pmp, "open /dev/{w} success!", &Grammar::chip_disk),
        row(Source::printed, Step::pmp, "test..{d}\r", &Grammar::chip_number),
        row(Source::printed, Step::pmp, "INFO: JMB39X device exist", &Grammar::known),
        row(Source::printed, Step::pmp, "INFO: JMB39X CHIP ID = 32h, Revision ID = {s}",
            &Grammar::chip_text, "revision"),
        row(Source::printed, Step::pmp, "INFO: Binfile ID = {s}", &Grammar::known),
        row(Source::printed, Step::pmp, "INFO: Revision ID = {s}", &Grammar::known),
        row(Source::printed, Step::pmp, "INFO: Bonding = {s}", &Grammar::chip_text, "bonding"),
        row(Source::printed, Step::pmp, "INFO: Binfile length = {d} bytes", &Grammar::chip_text,
            "image", "number", "bytes"),
        row(Source::printed, Step::pmp, "INFO: Flash is found by chk{d}", &Grammar::known),
        row(Source::printed, Step::pmp, "INFO: Verify flash #{d}", &Grammar::known),
        row(Source::printed, Step::pmp, "INFO: Total verify size = {d}", &Grammar::known),
        row(Source::printed, Step::pmp, "INFO: Verify complete", &Grammar::known),
        row(Source::printed, Step::pmp, "INFO: Flash #{d} is the same as binary file",
            &Grammar::chip_flash, "same"),
        row(Source::printed, Step::pmp, "INFO: Upload flash #{d}", &Grammar::known),
        row(Source::printed, Step::pmp, "INFO: Total upload size = {d}", &Grammar::known),
        row(Source::printed, Step::pmp, "INFO: Upload complete", &Grammar::chip_flash, "updated"),
        row(Source::printed, Step::pmp, "INFO: Finish", &Grammar::known),
        row(Source::printed, Step::pmp, "WRN : chkbinfile, revision ID is mismatch ({s})",
            &Grammar::failure),
        row(Source::printed, Step::pmp, "      continue!{s}", &Grammar::continued),
        row(Source::printed, Step::pmp, "WRN : chkflashsts, chk1 fail, try chk0 ({s})",
            &Grammar::known),
        row(Source::printed, Step::pmp, "WRN : verifycode, verify fail ({s}", &Grammar::known),
        row(Source::printed, Step::pmp, "WRN : verifycode, verify not complete", &Grammar::known),
        row(Source::printed, Step::pmp, ".{s}", &Grammar::continued),
        row(Source::printed, Step::pmp, "ERR{s}", &Grammar::chip_error),
        row(Source::printed, Step::pmp, "update the firmware success, now reset the jmb321!\r",
            &Grammar::count, "chip_resets"),
        row(Source::printed, Step::pmp, "测试结果如下", &Grammar::known),
        row(Source::printed, Step::pmp, "Chip{d} 正常", &Grammar::chip_state, "good"),
        row(Source::printed, Step::pmp, "Chip{d} 发生错误", &Grammar::chip_state, "error"),
        row(Source::printed, Step::pmp, "Chip{d} 未进行测试", &Grammar::chip_state, "not-tested"),
    };
}

Grammar::Table::Table(std::vector<Row> all) : rows(std::move(all)) {
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const int first = rows[i].pattern.first_byte();
        for (int byte = 0; byte < 256; ++byte) {
            if (first == -1 || first == byte)
                by_byte.at(static_cast<std::size_t>(byte)).push_back(i);
        }
    }
}

const Grammar::Table& Grammar::table() {
    static const Table whole([] {
        std::vector<Row> rows;
        for (const auto part : {start_rows, heading_rows, anywhere_rows, panel_rows, network_rows,
                                alarm_rows, rtc_rows, usb_rows, disk_rows, rs485_rows, info_rows,
                                summary_rows, end_rows, pmp_rows}) {
            std::vector<Row> more = part();
            std::move(more.begin(), more.end(), std::back_inserter(rows));
        }
        return rows;
    }());
    return whole;
}

}  // namespace station
